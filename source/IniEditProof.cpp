// Two readings of each text are compared. In the first no names merge, so it is a sequence of sections and items in the
// order of the text, which must differ from the old one by just the planned elements: a line that became another kind,
// a value that joined another's parts, and a name that moved under another section all show there. The second is what
// programs see, where repeated names are one and runs of parts may join across the places of a section. There only what
// bears the edited names may differ.
//
// Each comparison goes through both texts once.

#include "IniEditProof.h"

#include "IniModel.h"
#include "KzAssert.h"

namespace qkini {

namespace {

// A section line in front of the text, so that the engine keeps items that have no section.
constexpr char kInvented[] = "[.]\n";
constexpr size_t kInventedSize = sizeof kInvented - 1;

// The text as the engine shall read it, behind the invented line. The engine has no "#" for comments, but another sign.
std::string TextForEngine(const EditText& text)
{
    std::string result;
    result.reserve(kInventedSize + text.bytes().size());
    result += kInvented;
    result.append(text.bytes(), text.markSize(), std::string::npos);
    if (text.rules().hashComments) {
        for (unsigned i = 0; i < text.LineCount(); ++i) {
            const Text content = TrimmedLeft(text.ContentOf(i));
            if (text.At(i).kind == kIniEditComment && *content.begin == '#') {
                const auto at = static_cast<size_t>(content.begin - text.bytes().data());
                result[at - text.markSize() + kInventedSize] = ';';
            }
        }
    }
    return result;
}

int ReadWith(IniFile* ini, const EditRules& rules, bool merges, Text text)
{
    if (ini == nullptr) {
        return kIniErrMemory;
    }
    IniSetReadOptions(ini, rules.readOptions & ~kIniReadKeepComments);
    IniSetDuplicateChecking(ini, merges ? 1 : 0);
    IniSetCaseAndWhitespaceSensitiveChecking(ini, rules.caseSensitive ? 1 : 0);
    IniSetReadLimit(ini, -1);
    IniLineInput input{};
    input.read = &ReadMemory;
    input.context = &text;
    return IniRead(ini, &IniLineFileInputFunction, &input);
}

// A section, or an item of the last section in front of it.
struct Element {
    const IniSection* section;
    const IniItem* item;  // null for the section itself

    Text name() const { return Text(item == nullptr ? section->name : item->name); }
    Text value() const { return Text(item == nullptr ? "" : item->value); }
    char quote() const { return item == nullptr ? '\0' : item->quoteChar; }
};

bool IsSame(Text a, Text b)
{
    return a.size == b.size && memcmp(a.begin, b.begin, a.size) == 0;
}

bool operator==(const Element& a, const Element& b)
{
    return (a.item == nullptr) == (b.item == nullptr) && a.quote() == b.quote() && IsSame(a.name(), b.name()) &&
           IsSame(a.value(), b.value());
}

bool IsWanted(const Element& element, const ElementChange& change)
{
    return (element.item == nullptr) == change.isSection && element.quote() == change.quote &&
           IsSame(element.name(), {change.name.data(), change.name.size()}) &&
           IsSame(element.value(), {change.value.data(), change.value.size()});
}

// Goes through all elements of an object, each section in front of its items.
class Elements {
public:
    explicit Elements(const IniFile* ini) : m_ini(ini) { BeginSection(); }

    bool isAtEnd() const { return m_rank == m_ini->sections.Count(); }

    Element operator*() const
    {
        KZ_ASSERT(!isAtEnd() && m_section != nullptr);
        return {m_section, m_item < 0 ? nullptr : static_cast<const IniItem*>(*m_at)};
    }

    Elements& operator++()
    {
        KZ_ASSERT(!isAtEnd());
        if (m_item >= 0) {
            ++m_at;
        }
        ++m_item;
        if (m_item == m_section->items.Count()) {
            ++m_rank;
            BeginSection();
        }
        return *this;
    }

private:
    void BeginSection()
    {
        m_item = -1;
        if (!isAtEnd()) {
            m_section = SectionAt(m_ini, m_rank);
            m_at = m_section->items.begin();
        }
    }

    const IniFile* m_ini;
    const IniSection* m_section = nullptr;
    NameList::Iterator m_at{&m_ini->sections, m_ini->sections.order.count};  // of the items, once there is a section
    int m_rank = 0;                                                          // of the section
    int m_item = -1;                                                         // -1 at the section itself
};

bool AreSequencesProved(const IniFile* before, const IniFile* after, const EditPlan& plan)
{
    Elements old(before);
    Elements now(after);
    auto change = plan.changes.begin();
    for (unsigned at = 0;; ++at) {
        bool goes = false;
        for (; change != plan.changes.end() && change->at == at && !goes; ++change) {
            if (change->comes) {
                if (now.isAtEnd() || !IsWanted(*now, *change)) {
                    return false;
                }
                ++now;
            }
            goes = change->goes;
        }
        if (old.isAtEnd()) {
            return now.isAtEnd() && change == plan.changes.end() && !goes;
        }
        if (!goes) {
            if (now.isAtEnd() || !(*old == *now)) {
                return false;
            }
            ++now;
        }
        ++old;
    }
}

// The names that may differ for a host, as it sees them.
class Filter {
public:
    Filter(const EditRules& rules, const Touched& touched) : m_rules(rules), m_touched(touched) {}

    bool MayDiffer(const Element& element)
    {
        if (element.section != m_section) {
            m_section = element.section;
            m_isMeant = false;
            for (const std::string& name : m_touched.sections) {
                const Text section = name.empty() ? Text("(null)") : Text(name.data(), name.size());
                m_isMeant = m_isMeant || m_rules.AreSame(Text(m_section->name), section);
            }
        }
        if (!m_isMeant || m_touched.isWhole || element.item == nullptr) {
            return m_isMeant && (m_touched.isWhole || m_touched.mayCome);
        }
        for (const std::string& tag : m_touched.tags) {
            if (m_rules.AreSame(element.name(), {tag.data(), tag.size()})) {
                return true;
            }
        }
        return false;
    }

    void SkipFrom(Elements* elements)
    {
        while (!elements->isAtEnd() && MayDiffer(**elements)) {
            ++*elements;
        }
    }

private:
    const EditRules& m_rules;
    const Touched& m_touched;
    const IniSection* m_section = nullptr;  // asked about last
    bool m_isMeant = false;
};

bool AreHostsProved(const IniFile* before, const IniFile* after, const EditRules& rules, const Touched& touched)
{
    Elements old(before);
    Elements now(after);
    Filter oldFilter(rules, touched);
    Filter nowFilter(rules, touched);
    for (;;) {
        oldFilter.SkipFrom(&old);
        nowFilter.SkipFrom(&now);
        if (old.isAtEnd() || now.isAtEnd()) {
            return old.isAtEnd() && now.isAtEnd();
        }
        if (!(*old == *now)) {
            return false;
        }
        ++old;
        ++now;
    }
}

}  // namespace

int Readings::Read(const EditText& text)
{
    const std::string whole = TextForEngine(text);
    Owner inOrder(IniNew(0));
    Owner asHost(IniNew(0));
    int result = ReadWith(inOrder.get(), text.rules(), false, {whole.data(), whole.size()});
    if (result == 1) {
        result =
            ReadWith(asHost.get(), text.rules(), true, {whole.data() + kInventedSize, whole.size() - kInventedSize});
    }
    if (result == 1) {
        m_inOrder = std::move(inOrder);
        m_asHost = std::move(asHost);
    }
    return result;
}

bool Readings::Proves(const EditText& text, const Readings& before, const Readings& after, const EditPlan& plan)
{
    KZ_ASSERT(before.isThere() && after.isThere());
    return AreSequencesProved(before.m_inOrder.get(), after.m_inOrder.get(), plan) &&
           AreHostsProved(before.m_asHost.get(), after.m_asHost.get(), text.rules(), plan.touched);
}

}  // namespace qkini

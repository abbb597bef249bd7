#include "Lines.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kzini {

TextInput::TextInput(std::string_view text) : m_rest(text)
{
    m_input.read = &TextInput::Read;
    m_input.context = this;
}

int TextInput::Read(void* context, int size, int* actual, void* buffer)
{
    auto* const self = static_cast<TextInput*>(context);
    const std::size_t part = std::min(self->m_rest.size(), static_cast<std::size_t>(size));
    std::memcpy(buffer, self->m_rest.data(), part);
    self->m_rest.remove_prefix(part);
    *actual = static_cast<int>(part);
    return 1;
}

bool TextInput::NextLine(std::string* line, int* number)
{
    // In pieces, because a line may be longer than any buffer.
    char buffer[4096];
    int isEnd = 0;
    int isComplete = 0;
    line->clear();
    while (isEnd == 0 && isComplete == 0) {
        IniLineFileInputFunction(&m_input, buffer, sizeof buffer, &isEnd, &isComplete, number);
        *line += buffer;
    }
    return isEnd == 0 || !line->empty();
}

LineClassifier::LineClassifier(int readOptions) : m_ini(IniNew(0))
{
    if (m_ini == nullptr) {
        throw std::bad_alloc();
    }
    IniSetReadOptions(m_ini, readOptions);
    IniSetDuplicateChecking(m_ini, 0);
}

LineKind LineClassifier::KindOf(std::string_view line)
{
    // What the engine says of the line is seen in the object: an unrecognized line in its number, a section in a second
    // one, an item in their count; a comment leaves no trace. Blank lines are unrecognized too, so they are looked at
    // here.
    if (line.find_first_not_of(" \t\v\f\r") == std::string_view::npos) {
        return LineKind::kBlank;
    }
    std::string text = "[s]\n";
    text += line;
    TextInput source(text);
    if (IniRead(m_ini, &IniLineFileInputFunction, source.input()) != 1) {
        throw std::bad_alloc();
    }
    if (IniLineOfFirstUnrecognizedLine(m_ini) != -1) {
        return LineKind::kUnrecognized;
    }
    if (IniNumberOfSections(m_ini) == 2) {
        return LineKind::kSection;
    }
    return IniNumberOfItems(m_ini, "s") == 1 ? LineKind::kItem : LineKind::kComment;
}

}  // namespace kzini

// The proof that an edit changed what it was meant to change and nothing else, by the engine's own readings of the text
// before and after. Throws std::bad_alloc when out of memory.
#ifndef KZCORE_INIEDITPROOF_H
#define KZCORE_INIEDITPROOF_H

#include <memory>

#include "IniEditPlan.h"
#include "IniEditText.h"
#include "IniFile.h"

namespace qkini {

// What the engine makes of a text.
class Readings {
public:
    // 1, or a code of the engine.
    int Read(const EditText& text);

    bool isThere() const { return m_inOrder != nullptr; }

    // Whether the plan, and nothing else, leads from the one to the other, which `text` was planned for.
    static bool Proves(const EditText& text, const Readings& before, const Readings& after, const EditPlan& plan);

private:
    struct Dispose {
        void operator()(IniFile* ini) const { IniDispose(ini); }
    };
    using Owner = std::unique_ptr<IniFile, Dispose>;

    Owner m_inOrder;  // every section and item as it stands, those in front of the first section too
    Owner m_asHost;   // repeated names are one
};

}  // namespace qkini

#endif

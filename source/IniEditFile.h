// The file that an edit works on: found through its links, locked, read, and saved under the lock. Throws
// std::bad_alloc when out of memory.
#ifndef KZCORE_INIEDITFILE_H
#define KZCORE_INIEDITFILE_H

#include <string>

namespace qkini {

// Not locked and not saved to until Open succeeds. Codes are those of IniEdit.h.
class EditFile {
public:
    EditFile() = default;
    ~EditFile();
    EditFile(const EditFile&) = delete;
    EditFile& operator=(const EditFile&) = delete;

    // Reads the file into `text`; `options` is a sum of IniEditOption. Called once.
    int Open(const char* path, int options, std::string* text);

    // Puts `text` in the place of `saved`, which is what the file holds. The lock goes on.
    int Save(const std::string& text, const std::string& saved);

    int lostRights() const { return m_lostRights; }

private:
    int OpenForEdit(const std::string& path, std::string* text);
    int TryToLock(const std::string& path);
    int OpenTarget();
    bool IsNamedBy(const std::string& path) const;
    int SaveByRename(const std::string& text);
    int SaveInPlace(const std::string& text, const std::string& saved) const;

    int m_options = 0;
    int m_file = -1;        // holds the lock
    bool m_isMade = false;  // by this object, and nothing is in it yet
    int m_lostRights = 0;   // by the last save
    std::string m_target;   // the file's path behind all links; empty when it can't be saved
};

}  // namespace qkini

#endif

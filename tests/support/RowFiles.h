// The files of a row of a table, made in a folder and compared with what is there. In a row stands for a file its
// bytes, for a link a list of its target, for a folder null.
#ifndef KZCORE_TESTS_ROWFILES_H
#define KZCORE_TESTS_ROWFILES_H

#include <filesystem>
#include <map>
#include <string>

#include "JsonLines.h"
#include "TempFolder.h"

namespace kztest {

using Files = std::map<std::string, std::string>;

inline Files FilesIn(const Json& row)
{
    Files files;
    for (const auto& [name, file] : row.Members()) {
        files[name] = file.IsNull() ? "folder" : file.IsString() ? "file " + file.Str() : "link " + file[0].Str();
    }
    return files;
}

inline Files FilesIn(const TempFolder& folder)
{
    namespace fs = std::filesystem;
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(folder.File(""))) {
        const std::string name = entry.path().string().substr(folder.File("").size());
        files[name] = entry.is_symlink()        ? "link " + fs::read_symlink(entry).string()
                      : entry.is_regular_file() ? "file " + ReadWholeFile(entry.path())
                                                : "folder";
    }
    return files;
}

inline void MakeFiles(const Json& row, const TempFolder& folder)
{
    for (const auto& [name, file] : row.Members()) {
        if (file.IsNull()) {
            std::filesystem::create_directory(folder.File(name));
        } else if (file.IsString()) {
            folder.Write(name, file.Str());
        } else {
            std::filesystem::create_symlink(file[0].Str(), folder.File(name));
        }
    }
}

}  // namespace kztest

#endif

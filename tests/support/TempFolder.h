// A folder of a test's own, removed with all that is in it.
#ifndef KZCORE_TESTS_TEMPFOLDER_H
#define KZCORE_TESTS_TEMPFOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kztest {

class TempFolder {
public:
    TempFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kzcore_test_XXXXXX").string();
        mPath = mkdtemp(pattern.data());
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // The absolute path of `name` in the folder.
    std::string File(const std::string& name) const { return (mPath / name).string(); }

    // Writes a file and returns its absolute path.
    std::string Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(mPath / name, std::ios::binary) << bytes;
        return File(name);
    }

private:
    std::filesystem::path mPath;
};

inline std::string ReadWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The absolute path of a file below tests/data.
inline std::string DataFile(const std::string& name)
{
    return KZ_TEST_DATA_DIR "/" + name;
}

}  // namespace kztest

#endif

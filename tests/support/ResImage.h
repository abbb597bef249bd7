// Images of resource files.
#ifndef KZCORE_TESTS_RESIMAGE_H
#define KZCORE_TESTS_RESIMAGE_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace kztest {

inline const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

// The text of a counted string.
inline std::string Text(const unsigned char* pstr)
{
    return {reinterpret_cast<const char*>(pstr + 1), pstr[0]};
}

inline std::string Big(std::size_t value, int bytes)
{
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> shift & 0xFF);
    }
    return text;
}

struct ResEntry {
    std::string type;
    int id;
    std::string data;
    std::string name = {};
    unsigned attrs = 0;
};

// A sound file with these resources, in the order of their types.
class ResImage {
public:
    explicit ResImage(const std::vector<ResEntry>& entries, const std::string& fileType = "TEST")
    {
        std::map<std::string, std::vector<const ResEntry*>> types;
        for (const ResEntry& entry : entries) {
            types[entry.type].push_back(&entry);
        }
        std::string data, lists, names, map = Big(types.size() - 1, 4);
        for (const auto& [type, list] : types) {
            map += type + Big(list.size() - 1, 4) + Big(4 + 12 * types.size() + lists.size(), 4);
            for (const ResEntry* entry : list) {
                lists += Big(static_cast<unsigned>(entry->id), 4);
                lists += Big(entry->name.empty() ? 0xFFFFFFFF : names.size(), 4);
                lists += Big(entry->attrs, 4) + Big(data.size(), 4) + Big(0, 4);
                names += entry->name.empty() ? "" : Big(entry->name.size(), 1) + entry->name;
                data += Big(entry->data.size(), 4) + entry->data;
                data.resize((data.size() + 3) & ~std::size_t{3});
            }
        }
        map += lists;
        const std::string header = std::string("RSRC\r\n\0\3", 8) + fileType + "MAKE" + Big(32 + data.size(), 4) +
                                   Big(52 + map.size() + names.size(), 4) + Big(32, 4) + Big(data.size(), 4);
        mBytes = header + data + header + std::string(12, '\0') + Big(52, 4) +
                 Big(names.empty() ? 0 : 52 + map.size(), 4) + map + names;
    }

    const std::string& Bytes() const { return mBytes; }

private:
    std::string mBytes;
};

}  // namespace kztest

#endif

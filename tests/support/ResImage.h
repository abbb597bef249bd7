// Images of resource files, to be broken one field at a time.
#ifndef KZCORE_TESTS_RESIMAGE_H
#define KZCORE_TESTS_RESIMAGE_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
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

struct ResEntry {
    std::string type;
    int id;
    std::string data;
    std::string name = {};
    unsigned attrs = 0;
};

class ResImage {
public:
    // A sound file with these resources; types stand in the order of their first resource.
    explicit ResImage(const std::vector<ResEntry>& entries, const std::string& fileType = "TEST")
    {
        std::string data;
        std::vector<unsigned> offsets;
        for (const ResEntry& entry : entries) {
            offsets.push_back(static_cast<unsigned>(data.size()));
            data += Big(entry.data.size(), 4) + entry.data;
            data.resize((data.size() + 3) & ~std::size_t{3});
        }
        std::vector<std::string> types;
        for (const ResEntry& entry : entries) {
            if (std::find(types.begin(), types.end(), entry.type) == types.end()) {
                types.push_back(entry.type);
            }
        }
        mTypeMapSize = 4 + 12 * types.size();
        mMap = 32 + data.size();
        std::string typeMap = Big(types.size() - 1, 4);
        std::string lists;
        std::string names;
        for (const std::string& type : types) {
            const std::size_t start = lists.size();
            for (std::size_t i = 0; i < entries.size(); ++i) {
                const ResEntry& entry = entries[i];
                if (entry.type != type) {
                    continue;
                }
                lists += Big(static_cast<unsigned>(entry.id), 4);
                lists += Big(entry.name.empty() ? 0xFFFFFFFF : names.size(), 4);
                lists += Big(entry.attrs, 4) + Big(offsets[i], 4) + Big(0, 4);
                names += entry.name.empty() ? "" : Big(entry.name.size(), 1) + entry.name;
            }
            typeMap += type + Big((lists.size() - start) / 20 - 1, 4) + Big(mTypeMapSize + start, 4);
        }
        const std::string body = typeMap + lists;
        const std::size_t mapSize = 52 + body.size() + names.size();
        const std::string header = std::string("RSRC\r\n\0\3", 8) + fileType + "MAKE" + Big(mMap, 4) + Big(mapSize, 4) +
                                   Big(32, 4) + Big(data.size(), 4);
        mBytes = header + data + header + Big(0, 8) + Big(0, 4) + Big(52, 4) +
                 Big(names.empty() ? 0 : 52 + body.size(), 4) + body + names;
    }

    void PutU32(std::size_t offset, unsigned value) { mBytes.replace(offset, 4, Big(value, 4)); }

    // Where things stand in the file: a field of the map, of a type's list, of an entry by its place.
    std::size_t MapField(std::size_t field) const { return mMap + field; }
    std::size_t TypeField(std::size_t type, std::size_t field) const { return mMap + 52 + 4 + 12 * type + field; }
    std::size_t EntryField(std::size_t entry, std::size_t field) const
    {
        return mMap + 52 + mTypeMapSize + 20 * entry + field;
    }
    // What `listOffset` is for the list that starts with this entry.
    unsigned ListOffset(std::size_t entry) const { return static_cast<unsigned>(mTypeMapSize + 20 * entry); }

    const std::string& Bytes() const { return mBytes; }
    std::string Header() const { return mBytes.substr(0, 32); }
    std::string Map() const { return mBytes.substr(mMap); }

private:
    static std::string Big(std::size_t value, int bytes)
    {
        std::string text;
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
            text += static_cast<char>(value >> shift & 0xFF);
        }
        return text;
    }

    std::string mBytes;
    std::size_t mMap = 0;
    std::size_t mTypeMapSize = 0;
};

}  // namespace kztest

#endif

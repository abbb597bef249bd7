// Reads files of JSON objects, one a line, as the tests' data has them: a character U+0000 to U+00FF of a string is
// one byte.
#ifndef KZCORE_TESTS_JSONLINES_H
#define KZCORE_TESTS_JSONLINES_H

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "TempFolder.h"

namespace kztest {

// A value. Asking for what it doesn't hold throws std::runtime_error.
class Json {
public:
    enum Kind { kNull, kBool, kNumber, kString, kArray, kObject };

    Kind kind() const { return mKind; }
    bool IsNull() const { return mKind == kNull; }

    // A number or truth value; all integers of the data fit.
    long long Int() const
    {
        if (mKind != kBool) {
            Expect(kNumber);
        }
        return std::strtoll(mText.c_str(), nullptr, 10);
    }
    unsigned long long UInt() const
    {
        Expect(kNumber);
        return std::strtoull(mText.c_str(), nullptr, 10);
    }
    double Double() const
    {
        Expect(kNumber);
        return std::strtod(mText.c_str(), nullptr);
    }

    // The bytes of a string.
    const std::string& Str() const
    {
        Expect(kString);
        return mText;
    }

    // The bytes that a string of hexadecimal digits stands for.
    std::string Hex() const
    {
        std::string bytes;
        for (std::size_t i = 0; i + 1 < Str().size(); i += 2) {
            bytes += static_cast<char>(std::stoi(mText.substr(i, 2), nullptr, 16));
        }
        return bytes;
    }

    // The elements of an array.
    const std::vector<Json>& Items() const
    {
        Expect(kArray);
        return mItems;
    }
    const Json& operator[](std::size_t index) const { return Items().at(index); }
    std::size_t size() const { return Items().size(); }

    // The members of an object, by name.
    const std::map<std::string, Json>& Members() const
    {
        Expect(kObject);
        return mMembers;
    }
    bool Has(const std::string& key) const { return Members().count(key) != 0; }
    const Json& operator[](const char* key) const
    {
        const auto found = Members().find(key);
        if (found == mMembers.end()) {
            throw std::runtime_error("no member " + std::string(key));
        }
        return found->second;
    }

    // The line that an object was read from: what a failing test shows.
    const std::string& Line() const { return mText; }

private:
    friend class JsonReader;
    void Expect(Kind kind) const
    {
        if (mKind != kind) {
            throw std::runtime_error("JSON value of another kind: " + mText);
        }
    }

    Kind mKind = kNull;
    std::string mText;  // a number's or truth value's text (0, 1), a string's bytes, an outermost object's line
    std::vector<Json> mItems;
    std::map<std::string, Json> mMembers;
};

class JsonReader {
public:
    static Json Read(const std::string& line)
    {
        JsonReader reader(line);
        Json value = reader.Value();
        if (value.mKind == Json::kObject) {
            value.mText = line;
        }
        return value;
    }

private:
    explicit JsonReader(const std::string& line) : mCursor(line.c_str()) {}

    void SkipBlanks()
    {
        while (*mCursor != 0 && std::isspace(static_cast<unsigned char>(*mCursor)) != 0) {
            ++mCursor;
        }
    }
    bool Take(char c)
    {
        SkipBlanks();
        if (*mCursor != c) {
            return false;
        }
        ++mCursor;
        return true;
    }
    void Need(char c)
    {
        if (!Take(c)) {
            throw std::runtime_error(std::string("JSON lacks ") + c + " before " + mCursor);
        }
    }

    Json Value()
    {
        SkipBlanks();
        switch (*mCursor) {
            case '{':
                return Object();
            case '[':
                return Array();
            case '"':
                return String();
            default:
                return Word();
        }
    }

    Json Object()
    {
        Json value;
        value.mKind = Json::kObject;
        Need('{');
        if (Take('}')) {
            return value;
        }
        do {
            SkipBlanks();
            std::string key = String().mText;
            Need(':');
            value.mMembers.emplace(std::move(key), Value());
        } while (Take(','));
        Need('}');
        return value;
    }

    Json Array()
    {
        Json value;
        value.mKind = Json::kArray;
        Need('[');
        if (Take(']')) {
            return value;
        }
        do {
            value.mItems.push_back(Value());
        } while (Take(','));
        Need(']');
        return value;
    }

    Json String()
    {
        Json value;
        value.mKind = Json::kString;
        Need('"');
        while (*mCursor != '"') {
            if (*mCursor == 0) {
                throw std::runtime_error("JSON string without an end");
            }
            const char c = *mCursor++;
            value.mText += c == '\\' ? Escaped() : c;
        }
        ++mCursor;
        return value;
    }

    char Escaped()
    {
        const char c = *mCursor++;
        switch (c) {
            case 'n':
                return '\n';
            case 't':
                return '\t';
            case 'r':
                return '\r';
            case 'b':
                return '\b';
            case 'f':
                return '\f';
            case 'u': {
                const unsigned long code = std::stoul(std::string(mCursor, 4), nullptr, 16);
                mCursor += 4;
                if (code > 0xFF) {
                    throw std::runtime_error("JSON character that is no byte");
                }
                return static_cast<char>(code);
            }
            default:
                return c;
        }
    }

    Json Word()
    {
        Json value;
        while (*mCursor != 0 && std::string(",]} \t\r\n").find(*mCursor) == std::string::npos) {
            value.mText += *mCursor++;
        }
        if (value.mText == "true" || value.mText == "false") {
            value.mText = value.mText == "true" ? "1" : "0";
            value.mKind = Json::kBool;
        } else if (value.mText != "null") {
            value.mKind = Json::kNumber;
        }
        return value;
    }

    const char* mCursor;
};

// The objects of a file below tests/data, e.g. "vectors/hashes.jsonl". Fails the test when it has none.
inline std::vector<Json> ReadJsonLines(const std::string& name)
{
    std::vector<Json> rows;
    std::ifstream in(DataFile(name));
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            rows.push_back(JsonReader::Read(line));
        }
    }
    EXPECT_FALSE(rows.empty()) << "no rows in " << DataFile(name);
    return rows;
}

}  // namespace kztest

#endif

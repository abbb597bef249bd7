// Reads files of JSON objects, one a line, as the tests' data has them: a character U+0000 to U+00FF of a string is
// one byte.
#ifndef KZCORE_TESTS_JSONLINES_H
#define KZCORE_TESTS_JSONLINES_H

#include <gtest/gtest.h>

#include <cctype>
#include <charconv>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "TempFolder.h"

namespace kztest {

// A value. Asking for what it doesn't hold throws std::runtime_error.
class Json {
public:
    static Json Parse(const std::string& line)
    {
        const char* at = line.c_str();
        Json value(at);
        value.mLine = line;
        return value;
    }

    bool IsNull() const { return mKind == kWord && mText == "null"; }
    bool IsString() const { return mKind == kString; }

    // A number, or 0 and 1 for a truth value.
    long long Int() const { return mText == "true" ? 1 : mText == "false" ? 0 : std::stoll(As(kWord).mText); }
    unsigned long long UInt() const { return std::stoull(As(kWord).mText); }
    double Double() const
    {
        double value = 0;
        std::from_chars(As(kWord).mText.data(), mText.data() + mText.size(), value);
        return value;
    }

    // The bytes of a string, and those that its hexadecimal digits stand for.
    const std::string& Str() const { return As(kString).mText; }
    std::string Hex() const
    {
        std::string bytes;
        for (std::size_t i = 0; i + 1 < Str().size(); i += 2) {
            bytes += static_cast<char>(std::stoi(mText.substr(i, 2), nullptr, 16));
        }
        return bytes;
    }

    const std::vector<Json>& Items() const { return As(kArray).mItems; }
    const Json& operator[](std::size_t index) const { return Items().at(index); }
    const Json& operator[](int index) const { return Items().at(static_cast<std::size_t>(index)); }
    std::size_t size() const { return Items().size(); }

    const std::map<std::string, Json>& Members() const { return As(kObject).mMembers; }
    bool Has(const std::string& key) const { return Members().count(key) != 0; }
    const Json& operator[](const char* key) const
    {
        const auto found = Members().find(key);
        return found != mMembers.end() ? found->second : throw std::runtime_error("no member " + std::string(key));
    }

    // The line that an object was read from: what a failing test shows.
    const std::string& Line() const { return mLine; }

private:
    enum Kind { kWord, kString = '"', kArray = '[', kObject = '{' };

    explicit Json(const char*& at)
    {
        const char first = Next(at);
        if (first == kString) {
            mKind = kString;
            for (++at; *at != '"'; mText += Character(at)) {
            }
            ++at;
        } else if (first == kObject || first == kArray) {
            mKind = first == kObject ? kObject : kArray;
            ReadElements(at, first == kObject ? '}' : ']');
        } else {
            while (*at != 0 && std::string(",]} \t\r").find(*at) == std::string::npos) {
                mText += *at++;
            }
        }
    }

    void ReadElements(const char*& at, char end)
    {
        ++at;
        while (Next(at) != end) {
            if (mKind == kArray) {
                mItems.push_back(Json(at));
            } else {
                std::string key = Json(at).Str();
                Skip(at, ':');
                mMembers.emplace(std::move(key), Json(at));
            }
            if (Next(at) != end) {
                Skip(at, ',');
            }
        }
        ++at;
    }

    static char Next(const char*& at)
    {
        while (std::isspace(static_cast<unsigned char>(*at)) != 0) {
            ++at;
        }
        return *at;
    }
    static void Skip(const char*& at, char c)
    {
        if (Next(at) != c) {
            throw std::runtime_error(std::string("JSON lacks ") + c + " before " + at);
        }
        ++at;
    }
    static char Character(const char*& at)
    {
        if (*at == 0) {
            throw std::runtime_error("JSON string without an end");
        }
        if (*at != '\\') {
            return *at++;
        }
        const char c = at[1];
        at += 2;
        if (c == 'u') {
            const std::string digits(at, 4);
            at += 4;
            return static_cast<char>(std::stoi(digits, nullptr, 16));
        }
        const std::size_t control = std::string("bfnrt").find(c);
        return control == std::string::npos ? c : "\b\f\n\r\t"[control];
    }

    const Json& As(Kind kind) const
    {
        return mKind == kind ? *this : throw std::runtime_error("JSON value of another kind: " + mText);
    }

    Kind mKind = kWord;
    std::string mText;  // a string's bytes; a number, a truth value or null as it was read
    std::string mLine;
    std::vector<Json> mItems;
    std::map<std::string, Json> mMembers;
};

// The objects of a file below tests/data, e.g. "vectors/hashes.jsonl". Fails the test when it has none.
inline std::vector<Json> ReadJsonLines(const std::string& name)
{
    std::vector<Json> rows;
    std::ifstream in(DataFile(name));
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            rows.push_back(Json::Parse(line));
        }
    }
    EXPECT_FALSE(rows.empty()) << "no rows in " << DataFile(name);
    return rows;
}

// Gives each row of a file to the check that its "op" names; rows of other operations are not for the caller.
using RowChecks = std::map<std::string, std::function<void(const Json&)>>;
inline void CheckRows(const std::string& name, const RowChecks& checks)
{
    std::set<std::string> met;
    for (const Json& row : ReadJsonLines(name)) {
        if (const auto check = checks.find(row["op"].Str()); check != checks.end()) {
            SCOPED_TRACE(row.Line());
            check->second(row);
            met.insert(check->first);
        }
    }
    EXPECT_EQ(met.size(), checks.size()) << "operations without a row in " << name;
}

}  // namespace kztest

#endif

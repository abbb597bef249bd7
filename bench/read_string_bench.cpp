// One string out of a resource file, beside SQLite holding the same strings under the same keys.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PathRef.h"
#include "RatioReporter.h"
#include "ResourceManager.h"
#include "StartedLibrary.h"
#include "TempFolder.h"

namespace {

constexpr int kListId = 1000;
constexpr int kIndex = 3;

std::string gResourceFile;
std::string gDatabaseFile;

// A run on a premise that does not hold would measure nothing: stop it.
void Require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "read_string_bench: %s\n", what);
        std::exit(1);
    }
}

RsrcFile OpenResourceFile()
{
    const PathRef path(gResourceFile, PathRef::StringUnix());
    RsrcFile refnum = 0;
    Require(ROpenFile(&path, 1, &refnum, nullptr, nullptr) == 0, "the resource file does not open");
    return refnum;
}

void Run(sqlite3* db, const char* sql)
{
    Require(sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

sqlite3* OpenDatabase()
{
    sqlite3* db = nullptr;
    Require(sqlite3_open_v2(gDatabaseFile.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK,
            "the database does not open");
    return db;
}

sqlite3_stmt* PrepareSelect(sqlite3* db)
{
    sqlite3_stmt* select = nullptr;
    Require(sqlite3_prepare_v2(db, "SELECT text FROM strings WHERE key = ?", -1, &select, nullptr) == SQLITE_OK,
            "the select can't be prepared");
    return select;
}

long long Key(int id, int index)
{
    return (static_cast<long long>(id) << 16) | index;
}

// Copies the text of a key, as the resource side copies its string.
int Select(sqlite3_stmt* select, char* text)
{
    sqlite3_bind_int64(select, 1, Key(kListId, kIndex));
    int size = -1;
    if (sqlite3_step(select) == SQLITE_ROW) {
        size = sqlite3_column_bytes(select, 0);
        std::memcpy(text, sqlite3_column_text(select, 0), static_cast<size_t>(size));
    }
    sqlite3_reset(select);
    return size;
}

// Fills the database with every string of every list that the resource file holds.
void MakeDatabase()
{
    sqlite3* db = nullptr;
    Require(sqlite3_open(gDatabaseFile.c_str(), &db) == SQLITE_OK, "the database can't be made");
    Run(db, "CREATE TABLE strings (key INTEGER PRIMARY KEY, text TEXT); BEGIN");
    sqlite3_stmt* insert = nullptr;
    Require(sqlite3_prepare_v2(db, "INSERT INTO strings VALUES (?, ?)", -1, &insert, nullptr) == SQLITE_OK, "insert");
    const RsrcFile file = OpenResourceFile();
    for (const int id : {-7, kListId, kListId + 1}) {
        unsigned char text[256];
        for (int index = 1; RGetIndString(file, text, id, index) == 0; ++index) {
            sqlite3_bind_int64(insert, 1, Key(id, index));
            sqlite3_bind_text(insert, 2, reinterpret_cast<const char*>(text + 1), text[0], SQLITE_TRANSIENT);
            Require(sqlite3_step(insert) == SQLITE_DONE, "a string can't be inserted");
            sqlite3_reset(insert);
        }
    }
    RCloseFile(file);
    sqlite3_finalize(insert);
    Run(db, "COMMIT");
    sqlite3_close(db);
}

void OpenReadClose_kzcore(benchmark::State& state)
{
    unsigned char text[256];
    for (auto _ : state) {
        const RsrcFile file = OpenResourceFile();
        benchmark::DoNotOptimize(RGetIndString(file, text, kListId, kIndex));
        RCloseFile(file);
    }
    Require(text[0] == 19, "wrong string");
}

void OpenReadClose_sqlite(benchmark::State& state)
{
    char text[256];
    int size = 0;
    for (auto _ : state) {
        sqlite3* db = OpenDatabase();
        sqlite3_stmt* select = PrepareSelect(db);
        size = Select(select, text);
        sqlite3_finalize(select);
        sqlite3_close(db);
    }
    Require(size == 19, "wrong string");
}

void ReadString_kzcore(benchmark::State& state)
{
    const RsrcFile file = OpenResourceFile();
    unsigned char text[256];
    for (auto _ : state) {
        benchmark::DoNotOptimize(RGetIndString(file, text, kListId, kIndex));
        benchmark::ClobberMemory();
    }
    Require(text[0] == 19, "wrong string");
    RCloseFile(file);
}

void SelectInto(benchmark::State& state, bool inTransaction)
{
    sqlite3* db = OpenDatabase();
    if (inTransaction) {
        Run(db, "BEGIN");
    }
    sqlite3_stmt* select = PrepareSelect(db);
    char text[256];
    int size = 0;
    for (auto _ : state) {
        size = Select(select, text);
        benchmark::ClobberMemory();
    }
    Require(size == 19, "wrong string");
    sqlite3_finalize(select);
    sqlite3_close(db);
}

void ReadString_sqlite(benchmark::State& state)
{
    SelectInto(state, false);
}

// The peer's best case: one transaction around all selects, so that it takes no file lock for each.
void ReadString_sqlite_transaction(benchmark::State& state)
{
    SelectInto(state, true);
}

BENCHMARK(OpenReadClose_kzcore);
BENCHMARK(OpenReadClose_sqlite);
BENCHMARK(ReadString_kzcore);
BENCHMARK(ReadString_sqlite);
BENCHMARK(ReadString_sqlite_transaction);

}  // namespace

int main(int argc, char** argv)
{
    const kztest::StartedLibrary library;
    const kztest::TempFolder folder;
    gResourceFile = folder.Write("strings.rsrc", kztest::ReadWholeFile(kztest::DataFile("rsrc/strings.rsrc")));
    gDatabaseFile = folder.File("strings.db");
    MakeDatabase();
    return kzbench::RunWithGoals(
        argc, argv,
        {kzbench::Faster("open, read string 3, close", "OpenReadClose_kzcore", 1, "OpenReadClose_sqlite"),
         kzbench::Faster("string 3 of an open file", "ReadString_kzcore", 20, "ReadString_sqlite"),
         kzbench::Faster("string 3 of an open file", "ReadString_kzcore", 1, "ReadString_sqlite_transaction")});
}

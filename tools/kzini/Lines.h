// The lines of a text as the library's INI engine sees them, and what it takes each for. The engine is asked, and its
// rules are not written a second time, so that the two can't differ.
#ifndef KZINI_LINES_H
#define KZINI_LINES_H

#include <kzcore/IniFile.h>

#include <string>
#include <string_view>

namespace kzini {

// Gives a text to IniRead: IniLineFileInputFunction with `input()`.
class TextInput {
public:
    explicit TextInput(std::string_view text);
    TextInput(const TextInput&) = delete;
    TextInput& operator=(const TextInput&) = delete;

    IniLineInput* input() { return &m_input; }

    // The next line and its number; false at the end.
    bool NextLine(std::string* line, int* number);

private:
    static int Read(void* context, int size, int* actual, void* buffer);

    std::string_view m_rest;
    IniLineInput m_input{};
};

enum class LineKind { kBlank, kComment, kSection, kItem, kUnrecognized };

// Asks the engine, by a file of just this line in a section of its own.
class LineClassifier {
public:
    explicit LineClassifier(int readOptions);
    ~LineClassifier() { IniDispose(m_ini); }
    LineClassifier(const LineClassifier&) = delete;
    LineClassifier& operator=(const LineClassifier&) = delete;

    LineKind KindOf(std::string_view line);

private:
    IniFile* m_ini;
};

}  // namespace kzini

#endif

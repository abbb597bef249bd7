#include "Elements.h"

#include <algorithm>

namespace kzini {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

std::string_view Trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string_view Separators(char separator)
{
    return separator == ',' ? std::string_view(",") : kBlanks;
}

}  // namespace

std::vector<std::string_view> ElementsOf(std::string_view list, char separator)
{
    std::vector<std::string_view> elements;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(Separators(separator)), list.size());
        const std::string_view element = Trimmed(list.substr(0, end));
        if (!element.empty()) {
            elements.push_back(element);
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return elements;
}

bool IsElement(std::string_view text, char separator)
{
    const auto elements = ElementsOf(text, separator);
    return elements.size() == 1 && elements[0] == text;
}

std::string WithElement(const std::string& list, char separator, std::string_view element)
{
    const auto elements = ElementsOf(list, separator);
    if (std::find(elements.begin(), elements.end(), element) != elements.end()) {
        return list;
    }
    if (elements.empty()) {
        return std::string(element);
    }
    // As between the first two, or else what is most usual. A separator at the end of the list serves too.
    const std::string_view between =
        elements.size() > 1
            ? std::string_view(elements[0].end(), static_cast<std::size_t>(elements[1].begin() - elements[0].end()))
            : std::string_view(separator == ',' ? ", " : " ");
    const std::string_view ended = Trimmed(list);
    if (separator == ',' && ended.back() == ',') {
        return std::string(ended) + (between.back() == ' ' ? " " : "") + std::string(element);
    }
    return list + std::string(between) + std::string(element);
}

std::string WithoutElement(std::string list, char separator, std::string_view element)
{
    for (;;) {
        const auto elements = ElementsOf(list, separator);
        const auto found = std::find(elements.begin(), elements.end(), element);
        if (found == elements.end()) {
            return list;
        }
        // With what separates it from the one before, or from the next where it is the first.
        const bool isFirst = found == elements.begin();
        const bool isLast = found + 1 == elements.end();
        const char* const begin = isFirst ? found->begin() : (found - 1)->end();
        const char* const end = isFirst && !isLast ? (found + 1)->begin() : found->end();
        list.erase(static_cast<std::size_t>(begin - list.data()), static_cast<std::size_t>(end - begin));
    }
}

}  // namespace kzini

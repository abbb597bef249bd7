// A scope in which paths make no debug texts.
#ifndef KZCORE_NODEBUGTEXTS_H
#define KZCORE_NODEBUGTEXTS_H

namespace kz {

// In debug mode a path keeps its display text at hand, but not while one of these lives on its thread: making the text
// takes the tree's lock, which the thread holds for as long. They don't nest.
class NoDebugTexts {
public:
    NoDebugTexts() { tLives = true; }
    ~NoDebugTexts() { tLives = false; }
    NoDebugTexts(const NoDebugTexts&) = delete;
    NoDebugTexts& operator=(const NoDebugTexts&) = delete;

    // True if one of them lives on this thread.
    static bool Lives() { return tLives; }

private:
    // Of the thread rather than of all, because other threads' paths keep their texts meanwhile.
    static inline constinit thread_local bool tLives = false;
};

}  // namespace kz

#endif

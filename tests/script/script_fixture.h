// Fixture of the script tests: gives the lexer a text of the test's own,
// handed out in pieces of a chosen size, and shows tokens as short words.
#pragma once

#include "harness/harness.h"

#include <algorithm>
#include <string>

#include "script/lexer.h"

namespace tarn_test {

class ScriptTest : public FreshLibrary {
  protected:
    // Makes `text` the lexer's source, `piece` units per pull.
    static void source(const std::string& text, size_t piece = 32768) {
        feed_text = u16(text);
        feed_pos = 0;
        feed_piece = piece;
        tarn::script_set_source([](char16_t* dest, size_t max) {
            size_t n = std::min({max, feed_piece, feed_text.size() - feed_pos});
            feed_pos += feed_text.copy(dest, n, feed_pos);
            return n;
        });
    }
    // The same, and reads the first token.
    static void start(const std::string& text) {
        source(text);
        tarn::next_token();
    }
    static std::string text() { return u8(std::u16string(tarn::token.text, tarn::token.length)); }
    // The current token as "name x", "str s", "wstr s", "hex s", "num 10", or
    // its kind and display ("6 ,"); "L" follows while the long mark is set.
    static std::string shown() {
        using namespace tarn;
        static const char* const literal[] = {"name ", "str ", "wstr ", "hex "};
        std::string s = std::to_string(token.kind) + " " + u8(token_display());
        if (token.kind == TK_NUMBER) s = "num " + std::to_string(number_value(token));
        if (token.kind >= TK_NAME && token.kind <= TK_HEXSTRING)
            s = literal[token.kind - TK_NAME] + text();
        return token.is_long ? s + "L" : s;
    }
    // What a parse left: the diagnostics, then "@" and the token it stopped
    // at ("error: Invalid syntax. @EOF").
    std::string left() const {
        std::string m = messages();
        return (m.empty() ? "" : m + " ") + "@" + u8(tarn::token_display());
    }
    // The tokens up to the end, shown and joined by " | ".
    static std::string tokens(const std::string& text, size_t piece = 32768) {
        source(text, piece);
        std::string all;
        while (tarn::next_token() != tarn::TK_EOF) all += (all.empty() ? "" : " | ") + shown();
        return all;
    }

    static inline std::u16string feed_text;
    static inline size_t feed_pos = 0, feed_piece = 0;
};

} // namespace tarn_test

// Insert expansion. `format_inserts` reproduces the platform message
// formatter (FormatMessage) for the script compiler's messages, so that both
// platforms give the same text; the preprocessor's own "%%t" style is in
// report.cpp.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tarn {

struct PpToken;
struct TokenRow;

// One insert: a machine word that the message text interprets.
struct MsgArg {
    enum Kind : uint8_t { integer, string, row, token } kind;
    int64_t value = 0;
    const char16_t* text = nullptr;
    const TokenRow* token_row = nullptr;
    const PpToken* pp_token = nullptr;

    MsgArg(int v) : kind(integer), value(v) {}
    MsgArg(unsigned v) : kind(integer), value(v) {}
    MsgArg(long v) : kind(integer), value(v) {}
    MsgArg(unsigned long v) : kind(integer), value(static_cast<int64_t>(v)) {}
    MsgArg(long long v) : kind(integer), value(v) {}
    MsgArg(unsigned long long v) : kind(integer), value(static_cast<int64_t>(v)) {}
    MsgArg(char16_t c) : kind(integer), value(c) {}
    MsgArg(const char16_t* s) : kind(string), text(s) {}
    MsgArg(const std::u16string& s) : kind(string), text(s.c_str()) {}
    MsgArg(const TokenRow* r) : kind(row), token_row(r) {}
    MsgArg(const PpToken* t) : kind(token), pp_token(t) {}
};

// Expands "%1".."%99" with an optional "!printf-format!", "%0" (stop, no
// further text), "%%", "%n" (line break), "%r", "%t", "%b", "%.", "%!" and
// any other "%x" as x, as the platform formatter does. "%n" refers to
// args[n-1]; a missing argument expands to nothing.
std::u16string format_inserts(std::u16string_view text, std::span<const MsgArg> args);
// The same, appended to `out`: a caller that formats often reuses one buffer.
void append_inserts(std::u16string& out, std::u16string_view text, std::span<const MsgArg> args);

} // namespace tarn

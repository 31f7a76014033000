// The usage text: one row per option, each a message of the table (the
// library's for the classic options, the driver's own for the rest).
#include "usage.h"

#include <cstdint>

#include "console.h"
#include "messages.h"

namespace tarn_driver {

namespace {

constexpr uint32_t DEFAULT_LANGUAGE = 0x409;

// What a row's "%1" stands for.
enum class Insert { none, code_page, res_extension, language };

struct UsageRow {
    uint32_t message;
    Insert insert = Insert::none;
};

// The order of the list. An option added to the driver adds its row here.
const UsageRow USAGE_ROWS[] = {
    {MSG_OPTION_C, Insert::code_page},
    {MSG_OPTION_D},
    {MSG_OPTION_E},
    {MSG_OPTION_FO, Insert::res_extension},
    {MSG_OPTION_I},
    {MSG_OPTION_L, Insert::language},
    {MSG_OPTION_M},
    {MSG_OPTION_N},
    {MSG_OPTION_R, Insert::res_extension},
    {MSG_OPTION_U},
    {MSG_OPTION_V},
    {MSG_OPTION_X},
    {MSG_OPTION_EXTENDED},
    {MSG_OPTION_DUMP},
    {MSG_OPTION_DUMP_HEX},
    {MSG_OPTION_HELP},
    {MSG_OPTION_VERSION},
};

std::u16string row_text(const UsageRow& row) {
    switch (row.insert) {
    case Insert::code_page:
        return message(row.message, {default_code_page()});
    case Insert::res_extension:
        return message(row.message, {u".res"});
    case Insert::language:
        return message(row.message, {DEFAULT_LANGUAGE});
    case Insert::none:
        break;
    }
    return message(row.message);
}

} // namespace

std::u16string usage_text(bool slash_options) {
    // Appended piece by piece: g++ 12 at -O3 warns (wrongly) about operator+ on a temporary.
    std::u16string text = u"\n";
    text += message(MSG_USAGE_SYNTAX, {u"tarn", u".rc"});
    text += u"\n";
    text += message(MSG_USAGE_OPTIONS);
    text += u"\n";
    for (const UsageRow& row : USAGE_ROWS) {
        std::u16string line = row_text(row);
        // The table writes the classic options the Windows way.
        if (!slash_options && line.starts_with(u'/')) line[0] = u'-';
        text += line + u"\n";
    }
    return text;
}

} // namespace tarn_driver

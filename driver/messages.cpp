// Message lookup and formatting for the driver.
#include "messages.h"

#include <iterator>
#include <span>

#include "console.h"

namespace tarn_driver {

namespace {

bool non_empty(const char* s) {
    return s && *s;
}

// clang-format off
const struct {
    uint32_t number;
    const char16_t* english;
    const char16_t* swedish;
} DRIVER_MESSAGES[] = {
    {MSG_MISSING_VALUE, u"Option %1 needs a value.\r\n",
                        u"Alternativet %1 behöver ett värde.\r\n"},
    {MSG_HEADERS_USED, u"Using the mingw-w64 headers in %1.\r\n",
                       u"Använder mingw-w64-huvudfilerna i %1.\r\n"},
    {MSG_HEADERS_NOT_FOUND, u"No mingw-w64 headers found.\r\n",
                            u"Inga mingw-w64-huvudfiler hittades.\r\n"},
    {MSG_OPTION_EXTENDED, u"--extended         Accept the extensions to the script language\r\n",
                          u"--extended         Godta utvidgningarna av skriptspråket\r\n"},
    {MSG_OPTION_FORMAT, u"--format=res|coff  Write a .res or a COFF object, whatever the output's extension\r\n",
                        u"--format=res|coff  Skriv en .res eller ett COFF-objekt, oavsett utdatafilens ändelse\r\n"},
    {MSG_OPTION_MACHINE, u"--machine=x64|x86|arm64  The COFF object's machine (default x64)\r\n",
                         u"--machine=x64|x86|arm64  COFF-objektets maskin (standard x64)\r\n"},
    {MSG_OPTION_DEPFILE, u"--depfile <file>   Write a make rule of every file read, on success\r\n",
                         u"--depfile <fil>    Skriv en make-regel med varje läst fil, vid framgång\r\n"},
    {MSG_OPTION_DUMP, u"--dump <file>      List the resources of a compiled resource file\r\n",
                      u"--dump <fil>       Lista resurserna i en kompilerad resursfil\r\n"},
    {MSG_OPTION_DUMP_HEX, u"--dump-hex <file>  The same, with each resource's data in hexadecimal\r\n",
                          u"--dump-hex <fil>   Detsamma, med varje resurs data hexadecimalt\r\n"},
    {MSG_OPTION_HELP, u"--help             Show this list of options\r\n",
                      u"--help             Visa denna lista över alternativ\r\n"},
    {MSG_OPTION_VERSION, u"--version          Show the version\r\n",
                         u"--version          Visa versionen\r\n"},
    {MSG_INPUT_NOT_A_FILE, u"Cannot read '%1': it is not a file.\r\n",
                           u"Det går inte att läsa '%1': det är ingen fil.\r\n"},
    {MSG_OUTPUT_IS_INPUT, u"Cannot write the output file '%1': it is the script.\r\n",
                          u"Det går inte att skriva utdatafilen '%1': det är skriptet.\r\n"},
    {MSG_OUTPUT_IS_FOLDER, u"Cannot write the output file '%1': it is a folder.\r\n",
                           u"Det går inte att skriva utdatafilen '%1': det är en mapp.\r\n"},
    {MSG_OUTPUT_FOLDER_MISSING, u"Cannot write the output file '%1': its folder does not exist.\r\n",
                                u"Det går inte att skriva utdatafilen '%1': mappen finns inte.\r\n"},
    {MSG_OUTPUT_FOLDER_LOCKED, u"Cannot write the output file '%1': its folder may not be written.\r\n",
                               u"Det går inte att skriva utdatafilen '%1': mappen är skrivskyddad.\r\n"},
    {MSG_OUTPUT_READ_ONLY, u"Cannot write the output file '%1': the file is read-only.\r\n",
                           u"Det går inte att skriva utdatafilen '%1': filen är skrivskyddad.\r\n"},
    {MSG_FILE_IN_QUESTION, u"This concerns the file '%1'.\r\n",
                           u"Det gäller filen '%1'.\r\n"},
    {MSG_LOST_OUTPUT, u"Cannot write to standard output: the output is incomplete.\r\n",
                      u"Det går inte att skriva till standardutdata: utdata är ofullständiga.\r\n"},
};
// clang-format on
static_assert(std::size(DRIVER_MESSAGES) == MSG_DRIVER_END - MSG_DRIVER_FIRST);

// The table's text: the library's own table first, so that a localised
// library speaks for the driver too; else the built-in copy. The driver's
// own messages come from its own table.
std::u16string raw_message(uint32_t number) {
    if (number >= MSG_DRIVER_FIRST) {
        for (const auto& m : DRIVER_MESSAGES)
            if (m.number == number)
                return driver_language() == tarn::Language::swedish ? m.swedish : m.english;
        return u"";
    }
    uint32_t id = MESSAGE_ID_BASE | number;
    if (std::optional<std::u16string> text = library_message(id)) return *text;
    const char16_t* text = tarn::catalogue_text(id, driver_language());
    return text ? text : u"";
}

} // namespace

bool locale_is_swedish(const char* lc_all, const char* lc_messages, const char* lang) {
    const char* chosen = non_empty(lc_all) ? lc_all : non_empty(lc_messages) ? lc_messages : lang;
    return non_empty(chosen) && chosen[0] == 's' && chosen[1] == 'v';
}

tarn::Language driver_language() {
    static const tarn::Language language =
        user_language_swedish() ? tarn::Language::swedish : tarn::Language::english;
    return language;
}

std::u16string as_lines(std::u16string_view text) {
    if (text.ends_with(u"\r\n"))
        text.remove_suffix(2);
    else if (text.ends_with(u"\n"))
        text.remove_suffix(1);
    std::u16string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
        if (!(text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n')) out += text[i];
    return out;
}

std::u16string expand_message(std::u16string_view raw, std::initializer_list<MsgArg> args) {
    return as_lines(tarn::format_inserts(raw, std::span<const MsgArg>(args.begin(), args.size())));
}

std::u16string message(uint32_t number, std::initializer_list<MsgArg> args) {
    return expand_message(raw_message(number), args);
}

std::u16string message_showing(uint32_t number, std::u16string_view placeholder,
                               std::u16string_view text) {
    std::u16string raw = raw_message(number);
    size_t at = raw.find(placeholder);
    if (at != std::u16string::npos) raw.replace(at, placeholder.size(), u"%1");
    std::u16string shown(text);
    return expand_message(raw, {shown.c_str()});
}

std::u16string diagnostic_line(const char16_t* file, uint32_t line, const char16_t* text) {
    std::u16string body = as_lines(text ? text : u"");
    if (!file) return body;
    std::u16string where = std::u16string(file) + u"(";
    for (char c : std::to_string(line)) where += char16_t(c);
    where += u")";
    return message(MSG_LOCATION, {where}) + body;
}

} // namespace tarn_driver

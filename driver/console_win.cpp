// The driver's system services on Windows: the wide command line, console
// output (UTF-16 to a console, the console output code page elsewhere), the
// user's interface language, Ctrl-C, and the library's message table.
#include "console.h"

#include <cstdlib>

#include <windows.h>

#include <atomic>
#include <shellapi.h>

namespace tarn_driver {

namespace {

constexpr WORD LANG_PRIMARY_SWEDISH = 0x1D;
constexpr DWORD CONSOLE_CHUNK = 8192; // units per WriteConsoleW call

void (*interrupt_callback)() = nullptr;
std::atomic<bool> interrupted{false};
std::atomic<bool> output_failed{false};
constexpr int SIGNAL_INTERRUPT = 2; // SIGINT: what a shell counts a Ctrl-C as

const wchar_t* wide(const char16_t* s) {
    return reinterpret_cast<const wchar_t*>(s);
}
const char16_t* narrow(const wchar_t* s) {
    return reinterpret_cast<const char16_t*>(s);
}

BOOL WINAPI on_ctrl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
    if (interrupted.exchange(true)) return FALSE; // the second one ends the program
    if (interrupt_callback) interrupt_callback();
    return TRUE;
}

bool is_console(HANDLE h) {
    DWORD mode = 0;
    return GetFileType(h) == FILE_TYPE_CHAR && GetConsoleMode(h, &mode);
}

bool write_console(HANDLE h, std::u16string_view text) {
    while (!text.empty()) {
        DWORD n = text.size() < CONSOLE_CHUNK ? DWORD(text.size()) : CONSOLE_CHUNK;
        DWORD written = 0;
        if (!WriteConsoleW(h, wide(text.data()), n, &written, nullptr) || written == 0)
            return false;
        text.remove_prefix(written);
    }
    return true;
}

bool write_encoded(HANDLE h, std::u16string_view text) {
    UINT code_page = GetConsoleOutputCP();
    if (code_page == 0) code_page = GetOEMCP(); // no console attached
    int n = WideCharToMultiByte(code_page, 0, wide(text.data()), int(text.size()), nullptr, 0,
                                nullptr, nullptr);
    if (n <= 0) return false;
    std::string bytes(size_t(n), '\0');
    WideCharToMultiByte(code_page, 0, wide(text.data()), int(text.size()), bytes.data(), n, nullptr,
                        nullptr);
    DWORD written = 0;
    return WriteFile(h, bytes.data(), DWORD(bytes.size()), &written, nullptr) &&
           written == DWORD(bytes.size());
}

} // namespace

std::vector<std::u16string> command_line(int, char**) {
    std::vector<std::u16string> args;
    int count = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!argv) return args;
    for (int i = 1; i < count; ++i) args.emplace_back(narrow(argv[i]));
    LocalFree(argv);
    return args;
}

bool console_write(Stream stream, std::u16string_view text) {
    std::u16string crlf;
    crlf.reserve(text.size() + 16);
    for (char16_t c : text) {
        if (c == u'\n') crlf += u'\r';
        crlf += c;
    }
    if (crlf.empty()) return true;
    HANDLE h = GetStdHandle(stream == Stream::out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (h == nullptr || h == INVALID_HANDLE_VALUE) return true; // no stream: nothing is lost
    bool ok = is_console(h) ? write_console(h, crlf) : write_encoded(h, crlf);
    if (!ok && stream == Stream::out) output_failed = true;
    return ok;
}

bool standard_output_failed() {
    return output_failed;
}

bool user_language_swedish() {
    return PRIMARYLANGID(GetUserDefaultUILanguage()) == LANG_PRIMARY_SWEDISH;
}

uint32_t default_code_page() {
    return GetACP();
}

// Raw text: the inserts are left for the driver's own formatter.
std::optional<std::u16string> library_message(uint32_t id) {
    HMODULE library = GetModuleHandleW(L"tarn64.dll");
    if (!library) return std::nullopt;
    wchar_t* buffer = nullptr;
    DWORD flags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
                  FORMAT_MESSAGE_IGNORE_INSERTS;
    DWORD n =
        FormatMessageW(flags, library, id, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    if (n == 0 || !buffer) return std::nullopt;
    std::u16string text(narrow(buffer), n);
    LocalFree(buffer);
    return text;
}

void catch_interrupt(void (*on_interrupt)()) {
    interrupt_callback = on_interrupt;
    SetConsoleCtrlHandler(on_ctrl, TRUE);
}

int stop_signal() {
    return interrupted ? SIGNAL_INTERRUPT : 0;
}

// The process heap serves a compilation well as it is.
void prepare_heap() {}

void hold_replaced_file(const std::u16string&) {}

void end_process(int status) {
    std::exit(status);
}

bool slash_starts_option() {
    return true;
}

} // namespace tarn_driver

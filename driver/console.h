// The driver's contact with the operating system: its arguments, console
// output, the user's language, Ctrl-C, the library's message table and the
// process heap.
// console_win.cpp implements it with the Windows API, console_posix.cpp with
// POSIX.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_driver {

enum class Stream { out, err };

// The arguments after the program name, as UTF-16.
std::vector<std::u16string> command_line(int argc, char** argv);

// Writes text whose line breaks are "\n"; each becomes the platform's line
// ending. A console gets UTF-16; a pipe or file UTF-8 on POSIX and the
// console output code page on Windows. False when not all of it was
// written (a full disk, a closed pipe).
bool console_write(Stream stream, std::u16string_view text);

// Whether some write to standard output has failed: what was asked for is
// then incomplete, which is no success.
bool standard_output_failed();

bool user_language_swedish();

// The code page the library starts with: the system ANSI code page.
uint32_t default_code_page();

// The raw text of message `id` from the loaded library's message table,
// when it carries one (Windows only).
std::optional<std::u16string> library_message(uint32_t id);

// Calls `on_interrupt` on Ctrl-C, and on POSIX on SIGTERM and SIGHUP too
// (from a signal handler or another thread: it must only set flags). A
// second one ends the program as usual. On POSIX a closed pipe becomes a
// failed write rather than SIGPIPE, so that the compile cleans up.
void catch_interrupt(void (*on_interrupt)());

// The signal that asked to stop (SIGINT for Ctrl-C), or 0.
int stop_signal();

// Readies the heap for one compilation; called before the library loads.
void prepare_heap();

// Holds the file that the output will replace; end_process hands it to a
// process that outlives this one, so that its disposal does not hold up the
// build (POSIX; nothing on Windows).
void hold_replaced_file(const std::u16string& path);

// Ends the program with `status`.
[[noreturn]] void end_process(int status);

// Whether "/" starts an option as well as "-".
bool slash_starts_option();

} // namespace tarn_driver

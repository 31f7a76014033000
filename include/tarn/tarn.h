/*
 * tarn: resource-script compiler library (tarn64.dll, libtarn64.so).
 *
 * The C interface a host uses: register callbacks, configure, then compile
 * one script (or preprocess it to standard output), then enumerate the files
 * the compilation depended on. Text is UTF-16, zero-terminated; char16_t has
 * the size and layout of the Windows wchar_t. Boolean results are 1 for
 * success and 0 for failure.
 *
 * State is process-wide and is not reset between calls: one load of the
 * library serves one compilation.
 */
#ifndef TARN_TARN_H
#define TARN_TARN_H

#include <stdint.h>

#ifdef __cplusplus
#include <uchar.h>
extern "C" {
#else
#include <uchar.h>
#endif

#if defined(TARN_BUILDING)
#if defined(_WIN32)
#define TARN_API /* exported through the module definition file */
#else
#define TARN_API __attribute__((visibility("default")))
#endif
#elif defined(_WIN32) && !defined(TARN_STATIC)
#define TARN_API __declspec(dllimport)
#else
#define TARN_API
#endif

/* severity: 0 warning or note, 1 error, 2 fatal error. file may be null. */
typedef void (*tarn_error_callback)(int32_t severity, const char16_t* file, uint32_t line,
                                    const char16_t* text);
/* The text is freed when the call returns: copy it to keep it. */
typedef void (*tarn_info_callback)(const char16_t* text);
/* type and name: 0xFFFF then an ordinal, or a zero-terminated string.
 * Return non-zero to go on. */
typedef int32_t (*tarn_file_info_callback)(const char16_t* type, const char16_t* name,
                                           uint16_t language, const char16_t* path,
                                           uint64_t context);
typedef int32_t (*tarn_include_info_callback)(const char16_t* path, uint64_t context);

TARN_API void set_error_function_w(tarn_error_callback callback, uint32_t collect_dependencies);
TARN_API void set_information_function_w(tarn_info_callback callback);
TARN_API int32_t set_codepage(uint32_t code_page);
TARN_API int32_t set_language(uint16_t language);
TARN_API void set_null_append_for_strings(void);
TARN_API void add_include_path_w(const char16_t* path);
TARN_API void delete_standard_include_paths(void);
TARN_API void define_symbol_w(const char16_t* definition);
TARN_API void undefine_symbol_w(const char16_t* name);
TARN_API int32_t compile_script_w(const char16_t* input, const char16_t* output);
TARN_API int32_t preprocess_script_w(const char16_t* input);
TARN_API int32_t enum_file_info_w(tarn_file_info_callback callback, uint64_t context);
TARN_API int32_t enum_include_info_w(tarn_include_info_callback callback, uint64_t context);
TARN_API void set_abort_flag(void);

/* Beyond the classic interface: the modern dialect (wide string literals
 * everywhere, inline data for user-defined types, #pragma code_page, TOOLBAR,
 * lifted length and count limits, and the rest listed in the README's
 * "Compatibility" section). Call it before compiling; a host that never calls
 * it gets the classic behaviour byte for byte. */
TARN_API void set_extended_mode(void);

#ifdef __cplusplus
}
#endif

#endif

/* host: the smallest program that uses the tarn library itself. It compiles
 * one script to a .res file and lists the files the compilation read.
 * Usage: host input.rc output.res */
#include <tarn/tarn.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The library's text is UTF-16; these programs' arguments are ASCII paths. */
static char16_t* widen(const char* s) {
    size_t n = strlen(s);
    char16_t* w = malloc((n + 1) * sizeof *w);
    for (size_t i = 0; i <= n; ++i) w[i] = (unsigned char)s[i];
    return w;
}

static void narrow_print(const char* prefix, const char16_t* s) {
    printf("%s", prefix);
    for (; *s; ++s) putchar(*s < 128 ? (char)*s : '?');
    putchar('\n');
}

static void on_error(int32_t severity, const char16_t* file, uint32_t line, const char16_t* text) {
    (void)file;
    fprintf(stderr, "severity %d, line %u: ", severity, line);
    for (; *text; ++text) fputc(*text < 128 ? (char)*text : '?', stderr);
    fputc('\n', stderr);
}

static int32_t on_include(const char16_t* path, uint64_t context) {
    (void)context;
    narrow_print("include: ", path);
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: host input.rc output.res\n");
        return 2;
    }
    set_error_function_w(on_error, 1); /* 1: record the files read */
    char16_t* input = widen(argv[1]);
    char16_t* output = widen(argv[2]);
    int ok = compile_script_w(input, output);
    printf("compiled: %s\n", ok ? "yes" : "no");
    if (ok) enum_include_info_w(on_include, 0);
    free(input);
    free(output);
    return ok ? 0 : 1;
}

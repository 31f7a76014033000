/* winapp: reads its own resources back through the Win32 resource
 * functions and prints what it finds, one fact a line, so that a test can
 * compare the output with the script. */
#include <windows.h>

#include <stdio.h>
#include <string.h>

#include "resource.h"

static void print_wide(const char* label, const WCHAR* text, int units) {
    char utf8[512];
    int n = WideCharToMultiByte(CP_UTF8, 0, text, units, utf8, sizeof utf8 - 1, NULL, NULL);
    utf8[n > 0 ? n : 0] = 0;
    printf("%s: %s\n", label, utf8);
}

static const void* find(LPCWSTR name, LPCWSTR type, DWORD* size) {
    HRSRC found = FindResourceW(NULL, name, type);
    HGLOBAL loaded = found ? LoadResource(NULL, found) : NULL;
    *size = found ? SizeofResource(NULL, found) : 0;
    return loaded ? LockResource(loaded) : NULL;
}

static void strings(void) {
    WCHAR text[128];
    int n = LoadStringW(NULL, IDS_GREETING, text, 128);
    print_wide("string 1", text, n);
    n = LoadStringW(NULL, IDS_FAREWELL, text, 128);
    print_wide("string 2", text, n);
}

static void version(void) {
    DWORD size = 0;
    const void* data = find(MAKEINTRESOURCEW(VS_VERSION_INFO), (LPCWSTR)RT_VERSION, &size);
    if (!data) {
        printf("version: missing\n");
        return;
    }
    /* VerQueryValue wants a writable copy. */
    static BYTE copy[4096];
    memcpy(copy, data, size < sizeof copy ? size : sizeof copy);
    VS_FIXEDFILEINFO* fixed = NULL;
    UINT len = 0;
    if (VerQueryValueW(copy, L"\\", (void**)&fixed, &len))
        printf("file version: %lu.%lu.%lu.%lu\n", HIWORD(fixed->dwFileVersionMS),
               LOWORD(fixed->dwFileVersionMS), HIWORD(fixed->dwFileVersionLS),
               LOWORD(fixed->dwFileVersionLS));
    WCHAR* text = NULL;
    if (VerQueryValueW(copy, L"\\StringFileInfo\\040904B0\\FileDescription", (void**)&text, &len))
        print_wide("description", text, (int)wcslen(text));
}

/* The DIALOGEX template's fixed header: dlgVer 1, signature 0xFFFF. */
static void dialog(void) {
    DWORD size = 0;
    const WORD* t = find(MAKEINTRESOURCEW(IDD_MAIN), (LPCWSTR)RT_DIALOG, &size);
    if (!t || t[0] != 1 || t[1] != 0xFFFF) {
        printf("dialog: missing\n");
        return;
    }
    WORD items = t[8];
    const short* box = (const short*)(t + 9);
    printf("dialog: %u controls, %dx%d at %d,%d\n", items, box[2], box[3], box[0], box[1]);
    const WORD* p = t + 13;  /* menu, class, then the title */
    p += *p == 0xFFFF ? 2 : wcslen((const WCHAR*)p) + 1;
    p += *p == 0xFFFF ? 2 : wcslen((const WCHAR*)p) + 1;
    print_wide("dialog title", (const WCHAR*)p, (int)wcslen((const WCHAR*)p));
}

/* GRPICONDIR: reserved, type 1, count, then 14-byte entries. */
static void icon_group(void) {
    DWORD size = 0;
    const BYTE* g = find(MAKEINTRESOURCEW(IDI_APP), (LPCWSTR)RT_GROUP_ICON, &size);
    if (!g) {
        printf("icon group: missing\n");
        return;
    }
    WORD count = *(const WORD*)(g + 4);
    printf("icon group: %u image(s)\n", count);
    for (WORD i = 0; i < count; ++i) {
        const BYTE* e = g + 6 + 14 * i;
        WORD bits = *(const WORD*)(e + 6), id = *(const WORD*)(e + 12);
        DWORD image = 0;
        const void* data = find(MAKEINTRESOURCEW(id), (LPCWSTR)RT_ICON, &image);
        printf("icon %u: %ux%u, %u bits, %lu bytes%s\n", id, e[0] ? e[0] : 256,
               e[1] ? e[1] : 256, bits, image, data ? "" : " (missing)");
    }
    HICON icon = LoadIconW(GetModuleHandleW(NULL), MAKEINTRESOURCEW(IDI_APP));
    printf("icon loads: %s\n", icon ? "yes" : "no");
}

static void settings(void) {
    DWORD size = 0;
    const char* data = find(MAKEINTRESOURCEW(IDR_SETTINGS), (LPCWSTR)RT_RCDATA, &size);
    printf("settings: %.*s", data ? (int)size : 0, data ? data : "");
}

int main(void) {
    strings();
    version();
    dialog();
    icon_group();
    settings();
    return 0;
}

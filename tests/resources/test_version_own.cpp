// The Windows build's own resources, compiled by tarn itself: tarn64.dll's
// message tables read with the platform's message formatter, the version
// resources of tarn64.dll and tarn.exe, and __TARN__ as tarn.exe sees it.
#ifdef _WIN32

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "diag/catalogue.h"
#include "resources/res_reader.h"

using namespace res_test;

namespace {

constexpr DWORD MESSAGE_ID_BASE = 0x20000000;
constexpr WORD ENGLISH = 0x0409, SWEDISH = 0x041D;

// The built tarn64.dll and tarn.exe stand in the folder above the tests'.
std::wstring built(const wchar_t* file) {
    wchar_t path[MAX_PATH];
    std::wstring p(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    p = p.substr(0, p.find_last_of(L"\\/"));
    return p.substr(0, p.find_last_of(L"\\/") + 1) + file;
}

struct DataModule {
    HMODULE handle;
    explicit DataModule(const wchar_t* file)
        : handle(LoadLibraryExW(built(file).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE)) {}
    ~DataModule() {
        if (handle) FreeLibrary(handle);
    }
};

// The message as the platform formats it; inserts left alone when none
// is given.
std::u16string format(HMODULE module, DWORD id, WORD language, const wchar_t* insert = nullptr) {
    DWORD_PTR args[1] = {reinterpret_cast<DWORD_PTR>(insert)};
    DWORD flags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
                  (insert ? FORMAT_MESSAGE_ARGUMENT_ARRAY : FORMAT_MESSAGE_IGNORE_INSERTS);
    wchar_t* buffer = nullptr;
    DWORD n = FormatMessageW(flags, module, id, language, reinterpret_cast<wchar_t*>(&buffer), 0,
                             insert ? reinterpret_cast<va_list*>(args) : nullptr);
    std::u16string text(reinterpret_cast<const char16_t*>(buffer ? buffer : L""), n);
    if (buffer) LocalFree(buffer);
    return text;
}

// The catalogue's text as the formatter gives it back: "%0" ends it even
// where inserts are left alone.
std::u16string up_to_stop(const char16_t* text) {
    std::u16string s(text);
    return s.substr(0, s.find(u"%0"));
}

TEST(OwnResources, DriverMessagesReadFromTheLibraryInBothLanguages) {
    DataModule dll(L"tarn64.dll");
    ASSERT_NE(dll.handle, nullptr);
    for (DWORD number = 0x5F; number <= 0x74; number++) {
        DWORD id = MESSAGE_ID_BASE | number;
        EXPECT_EQ(format(dll.handle, id, ENGLISH),
                  up_to_stop(tarn::catalogue_text(id, tarn::Language::english)))
            << number;
        EXPECT_EQ(format(dll.handle, id, SWEDISH),
                  up_to_stop(tarn::catalogue_text(id, tarn::Language::swedish)))
            << number;
    }
    EXPECT_EQ(format(dll.handle, MESSAGE_ID_BASE | 0x72, SWEDISH, L"x"), u"varning: ");
    EXPECT_EQ(format(dll.handle, MESSAGE_ID_BASE | 0x73, ENGLISH, L"Q"),
              u"Unrecognized option /Q.\r\n");
    EXPECT_EQ(format(dll.handle, MESSAGE_ID_BASE | 0x73, SWEDISH, L"Q"),
              u"Okänt alternativ /Q.\r\n");
    EXPECT_EQ(format(dll.handle, MESSAGE_ID_BASE | 0x01, ENGLISH, L"a.rc"),
              u"File not found: 'a.rc'.\r\n");
}

// The fixed block of a version resource: signature, then the file version.
void expect_version_8_0(const wchar_t* file) {
    SCOPED_TRACE(std::string(file, file + wcslen(file)));
    DataModule module(file);
    ASSERT_NE(module.handle, nullptr);
    HRSRC found = FindResourceW(module.handle, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
    ASSERT_NE(found, nullptr);
    ASSERT_GE(SizeofResource(module.handle, found), 92u);
    const uint8_t* data =
        static_cast<const uint8_t*>(LockResource(LoadResource(module.handle, found)));
    std::vector<uint8_t> Bytes::of(data, data + 92);
    EXPECT_EQ(get32(bytes, 40), 0xFEEF04BDu);
    EXPECT_EQ(get32(bytes, 48) >> 16, 8u);
    EXPECT_EQ(get32(bytes, 48) & 0xFFFF, 0u);
}

TEST(OwnResources, VersionResources) {
    expect_version_8_0(L"tarn64.dll");
    expect_version_8_0(L"tarn.exe");
}

class OwnVersion : public tarn_test::FreshLibrary {};

// Runs tarn.exe with the arguments; returns what it wrote on standard output.
std::string run_tarn(const std::wstring& arguments, const std::wstring& output) {
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE out = CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (out == INVALID_HANDLE_VALUE) return "";
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = out;
    start.hStdError = out;
    PROCESS_INFORMATION process = {};
    std::wstring command = L"\"" + built(L"tarn.exe") + L"\" " + arguments;
    if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start,
                       &process)) {
        WaitForSingleObject(process.hProcess, INFINITE);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    CloseHandle(out);
    std::ifstream in(std::filesystem::path(output), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST_F(OwnVersion, TarnMacroShowsTheHostsVersion) {
    std::filesystem::path script = write_file("v.rc", "__TARN__\n");
    std::string text = run_tarn(L"-E \"" + script.wstring() + L"\"", path_of("out.txt").wstring());
    EXPECT_NE(text.find("800"), std::string::npos) << text;
}

} // namespace

#endif

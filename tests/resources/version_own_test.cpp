// The Windows build's own resources, compiled by tarn itself: tarn64.dll's
// message tables read with the platform's message formatter, the version
// resources of tarn64.dll and tarn.exe, and __TARN__ as tarn.exe sees it.
#ifdef _WIN32

#include <windows.h>

#include <fstream>
#include <iterator>

#include "diag/catalogue.h"
#include "resources/res_reader.h"

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

// The message as the platform formats it, inserts left alone without one;
// the catalogue's own text ends at "%0" for the same reason.
std::u16string format(HMODULE module, DWORD id, WORD language, const wchar_t* insert = nullptr) {
    DWORD_PTR args[1] = {reinterpret_cast<DWORD_PTR>(insert)};
    DWORD flags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
                  (insert ? FORMAT_MESSAGE_ARGUMENT_ARRAY : FORMAT_MESSAGE_IGNORE_INSERTS);
    wchar_t* buffer = nullptr;
    DWORD n = FormatMessageW(flags, module, MESSAGE_ID_BASE | id, language,
                             reinterpret_cast<wchar_t*>(&buffer), 0,
                             insert ? reinterpret_cast<va_list*>(args) : nullptr);
    std::u16string text(reinterpret_cast<const char16_t*>(buffer ? buffer : L""), n);
    if (buffer) LocalFree(buffer);
    return text;
}
std::u16string catalogue(DWORD id, tarn::Language language) {
    std::u16string s(tarn::catalogue_text(MESSAGE_ID_BASE | id, language));
    return s.substr(0, s.find(u"%0"));
}

TEST(OwnResources, DriverMessagesReadFromTheLibraryInBothLanguages) {
    DataModule dll(L"tarn64.dll");
    ASSERT_NE(dll.handle, nullptr);
    for (DWORD id = 0x5F; id <= 0x74; id++) {
        EXPECT_EQ(format(dll.handle, id, ENGLISH), catalogue(id, tarn::Language::english)) << id;
        EXPECT_EQ(format(dll.handle, id, SWEDISH), catalogue(id, tarn::Language::swedish)) << id;
    }
    EXPECT_EQ(format(dll.handle, 0x72, SWEDISH, L"x"), u"varning: ");
    EXPECT_EQ(format(dll.handle, 0x73, ENGLISH, L"Q"), u"Unrecognized option /Q.\r\n");
    EXPECT_EQ(format(dll.handle, 0x73, SWEDISH, L"Q"), u"Okänt alternativ /Q.\r\n");
    EXPECT_EQ(format(dll.handle, 0x01, ENGLISH, L"a.rc"), u"File not found: 'a.rc'.\r\n");
}

TEST(OwnResources, VersionResources) {
    for (const wchar_t* file : {L"tarn64.dll", L"tarn.exe"}) {
        SCOPED_TRACE(tarn_test::u8(reinterpret_cast<const char16_t*>(file)));
        DataModule module(file);
        ASSERT_NE(module.handle, nullptr);
        HRSRC found = FindResourceW(module.handle, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
        ASSERT_NE(found, nullptr);
        ASSERT_GE(SizeofResource(module.handle, found), 92u);
        auto data = static_cast<const uint8_t*>(LockResource(LoadResource(module.handle, found)));
        std::vector<uint8_t> fixed(data + 40, data + 92);
        EXPECT_EQ(res_test::get32(fixed, 0), 0xFEEF04BDu); // the signature
        EXPECT_EQ(res_test::get32(fixed, 8), 0x00080000u); // file version 8.0
    }
}

using OwnVersion = tarn_test::FreshLibrary;

TEST_F(OwnVersion, TarnMacroShowsTheHostsVersion) {
    std::filesystem::path script = write_file("v.rc", "__TARN__\n"), out = path_of("out.txt");
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE handle = CreateFileW(out.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = start.hStdError = handle;
    PROCESS_INFORMATION process = {};
    std::wstring command = L"\"" + built(L"tarn.exe") + L"\" -E \"" + script.wstring() + L"\"";
    if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start,
                       &process)) {
        WaitForSingleObject(process.hProcess, INFINITE);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    CloseHandle(handle);
    std::ifstream in(out, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(in), {});
    EXPECT_NE(text.find("800"), std::string::npos) << text;
}

} // namespace

#endif

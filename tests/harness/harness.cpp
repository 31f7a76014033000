#include "harness/harness.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>
#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

#include "api/lifecycle.h"
#include "support/text.h"
#include <tarn/tarn.h>

namespace tarn_test {

namespace {

FreshLibrary* current = nullptr;
std::thread::id caller; // the thread the library was attached on
std::atomic<unsigned> folder_counter{0};

} // namespace

std::u16string u16(const std::string& utf8) {
    return tarn::utf8_to_utf16(utf8);
}
std::string u8(const std::u16string& utf16) {
    return tarn::utf16_to_utf8(utf16);
}

std::vector<uint8_t> read_bytes(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

ScopedEnv::ScopedEnv(const char* n, const char* value) : name(n) {
    const char* v = std::getenv(n);
    had = v != nullptr;
    if (v) old = v;
    set(value);
}

ScopedEnv::~ScopedEnv() {
    set(had ? old.c_str() : nullptr);
}

void ScopedEnv::set(const char* value) {
#ifdef _WIN32
    _putenv_s(name.c_str(), value ? value : "");
#else
    if (value)
        setenv(name.c_str(), value, 1);
    else
        unsetenv(name.c_str());
#endif
}

static unsigned long process_number() {
#ifdef _WIN32
    return static_cast<unsigned long>(_getpid());
#else
    return static_cast<unsigned long>(getpid());
#endif
}

void FreshLibrary::SetUp() {
    // The process in the name: two runs of the suite at once (two
    // checkouts, a build and a check) must not share folders.
    dir_ = std::filesystem::temp_directory_path() /
           ("tarn-test-" + std::to_string(process_number()) + "-" +
            std::to_string(folder_counter++) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    // Saved preludes go to a folder of the case's own, beside its files.
    cache_env_.set((dir_.string() + "-cache").c_str());
    reattach();
}

void FreshLibrary::reattach(bool collect_dependencies) {
    tarn::library_detach();
    tarn::library_attach(nullptr);
    current = this;
    caller = std::this_thread::get_id();
    set_error_function_w(
        [](int32_t severity, const char16_t* file, uint32_t line, const char16_t* text) {
            Diagnostic d;
            d.severity = severity;
            d.has_file = file != nullptr;
            if (file) d.file = u8(file);
            d.line = line;
            d.text = u8(text);
            d.on_caller = std::this_thread::get_id() == caller;
            if (current) current->diags.push_back(d);
        },
        collect_dependencies);
    set_information_function_w([](const char16_t* text) {
        if (current) current->info.push_back(u8(text));
    });
}

void FreshLibrary::TearDown() {
    tarn::library_detach();
    current = nullptr;
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
    std::filesystem::remove_all(dir_.string() + "-cache", ec);
}

std::filesystem::path FreshLibrary::write_file(const std::string& name, const std::string& bytes) {
    std::filesystem::path p = dir_ / name;
    std::filesystem::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return p;
}

std::u16string FreshLibrary::wide(const std::filesystem::path& p) {
    return p.u16string();
}

std::vector<std::string> FreshLibrary::files() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir_))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string FreshLibrary::messages() const {
    std::string all;
    for (const Diagnostic& d : diags) {
        if (!all.empty()) all += '\n';
        all += d.text.substr(0, d.text.find_last_not_of("\r\n") + 1);
    }
    return all;
}

int32_t FreshLibrary::compile(const std::string& script, std::vector<uint8_t>* res) {
    std::filesystem::path in = write_file("input.rc", script);
    std::filesystem::path out = dir_ / "input.res";
    int32_t ok = compile_script_w(wide(in).c_str(), wide(out).c_str());
    if (res) *res = std::filesystem::exists(out) ? read_bytes(out) : std::vector<uint8_t>{};
    return ok;
}

} // namespace tarn_test

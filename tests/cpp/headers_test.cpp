// Real C headers: the mingw-w64 headers (Debian package
// mingw-w64-x86-64-dev), found through the "include" environment variable,
// preprocess cleanly and their definitions take effect. Skipped when the
// headers are not installed.
#include "cpp/pp_fixture.h"

#include <filesystem>
#include <optional>

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

const char* const MINGW_INCLUDE = "/usr/x86_64-w64-mingw32/include";

} // namespace

class Headers : public PpTest {
  protected:
    void SetUp() override {
        PpTest::SetUp();
#ifdef _WIN32
        GTEST_SKIP() << "the headers' folder is a path of the build machine";
#else
        if (!std::filesystem::exists(std::filesystem::path(MINGW_INCLUDE) / "windows.h"))
            GTEST_SKIP() << "no mingw-w64 headers in " << MINGW_INCLUDE;
        env_.emplace("include", MINGW_INCLUDE);
#endif
    }

    // Preprocesses `script` in a just-loaded library that reads the
    // headers' folder from the environment. mingw-w64's vadefs.h, which
    // _mingw.h includes whatever RC_INVOKED says, stops at an #error for a
    // compiler it does not know; GNU cpp passes there by defining __GNUC__,
    // and so does this host.
    std::string run(const std::string& script) {
        reattach();
        define_symbol_w(u"__GNUC__=4");
        return body(pp(script));
    }

    std::optional<ScopedEnv> env_;
};

TEST_F(Headers, WindowsAndResourceHeaders) {
    struct Case {
        const char *header, *probe, *expanded;
    } cases[] = {
        {"windows.h", "WS_CHILD|WS_VISIBLE IDOK VS_VERSION_INFO", "0x40000000L|0x10000000L 1 1"},
        {"winver.h", "VS_FF_DEBUG", "0x00000001l"},
        {"winresrc.h", "IDCANCEL", "2"},
        {"dlgs.h", "psh1", "0x0400"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.header);
        diags.clear();
        std::string out = run(std::string("#include <") + c.header + ">\n" + c.probe + "\n");
        EXPECT_EQ(messages(), "");
        EXPECT_NE(out.find(std::string(c.expanded) + "\n"), std::string::npos);
    }
}

TEST_F(Headers, CommctrlH) {
    // commctrl.h defines again, spelt differently (0x40 after 0x0040), 21
    // names that commctrl.rh, included by windows.h for resource compilers,
    // defined first: each is a redefinition warning, nothing else is.
    std::string out = run("#include <commctrl.h>\nTBS_VERT UDS_HORZ\n");
    for (const Diagnostic& d : diags)
        EXPECT_NE(d.text.find("warning: Macro redefinition of '"), std::string::npos) << d.text;
    EXPECT_EQ(diags.size(), 21u);
    EXPECT_NE(out.find("0x2 0x40\n"), std::string::npos);
}

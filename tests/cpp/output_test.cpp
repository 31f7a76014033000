// The preprocessed text: spacing as written, the pull in pieces, the output
// buffer's limit, and preprocess_script_w end to end (standard output
// captured).
#include "cpp/pp_fixture.h"

#include "cpp/preprocessor.h"
#include <tarn/tarn.h>

using namespace tarn_test;

class Output : public PpTest {};

TEST_F(Output, SpacingAsWritten) {
    EXPECT_EQ(pp("a   b\n\ta/* c */b\r\n  x // y\n"), marker(1) + "a   b\n\ta b\r\n  x\n");
}

TEST_F(Output, PullInPieces) {
    tarn::cpp_run_setup(wide(write_file("input.rc", "abcdefghij\n")).c_str());
    char16_t piece[8];
    std::u16string all;
    while (size_t n = tarn::readPreprocessed(piece, 5)) {
        EXPECT_LE(n, 5u);
        all.append(piece, n);
    }
    tarn::cpp_run_finish();
    EXPECT_EQ(u8(all), marker(1) + "abcdefghij\n");
}

TEST_F(Output, OverfullLineIsFatal) {
    std::string line;
    for (int i = 0; i < 13; ++i) line += " B";
    EXPECT_EQ(fatal("#define B " + std::string(1000, 'x') + "\n" + line + "\n"),
              "fatal error: Internal error (put_tokens).");
}

TEST_F(Output, EndToEndThroughStandardOutput) {
    write_file("inc.h", "#define TWICE(x) ((x) * 2)\nint f(void);\n");
    int32_t result = 0;
    std::string out = pp_export("#include \"inc.h\"\n1 ICON \"app.ico\"\n"
                                "#if TWICE(3) == 6\nSTRINGTABLE { 1, \"a\\\n b\" }\n#endif\n",
                                &result);
    EXPECT_EQ(result, 1);
#ifdef _WIN32
    std::string inc = std::string("#line 1 \"").append(dir_.string()).append("\\inc.h\"\n");
#else
    std::string inc = std::string("#line 1 \"").append(dir_.string()).append("/inc.h\"\n");
#endif
    EXPECT_EQ(out, marker(1) + inc + "\nint f(void);\n" + marker(2) +
                       "1 ICON \"app.ico\"\n\nSTRINGTABLE { 1, \"a b\" }\n" + marker(6) + "\n");
    EXPECT_TRUE(diags.empty());
    // A loaded library serves one run: the second succeeds without text.
    EXPECT_EQ(pp_export("second\n", &result), "");
    EXPECT_EQ(result, 1);
}

TEST_F(Output, FailedRunReturnsZero) {
    int32_t result = 1;
    pp_export("#error stop\n", &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(count("#error: stop."), 1u);
}

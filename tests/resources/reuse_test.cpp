// What one resource statement leaves behind for the next: a resource
// compiled after a larger one of its kind holds the same bytes as alone, and
// the duplicate check names the file each first resource came from.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using Reuse = ResTest;

TEST_F(Reuse, AResourceAfterALargerOneOfItsKindIsAsAlone) {
    struct Case {
        const char* large;
        const char* small;
    } cases[] = {
        {"1 DIALOGEX 1, 2, 3, 4 CAPTION \"A long caption\" FONT 8, \"Face\", 700, 1, 2 BEGIN\n"
         "  CONTROL \"a long control text\", 7, \"SomeClass\", 0, 1, 2, 3, 4 BEGIN 1, \"xyz\" END\n"
         "  LTEXT \"more text\", 8, 1, 2, 3, 4\n"
         "  PUSHBUTTON \"more text\", 9, 1, 2, 3, 4\n"
         "END",
         "2 DIALOGEX 5, 6, 7, 8 BEGIN CONTROL \"\", 1, \"Button\", 0, 1, 2, 3, 4 END"},
        {"1 DIALOG 1, 2, 3, 4 MENU M CLASS \"C\" BEGIN LTEXT \"Text\", 1, 1, 2, 3, 4 END",
         "2 DIALOG 1, 2, 3, 4 BEGIN END"},
        {"1 MENU BEGIN POPUP \"P\" BEGIN MENUITEM \"Item one\", 1\n"
         "  POPUP \"Q\" BEGIN MENUITEM \"Deep\", 2 END END MENUITEM \"Last\", 3 END",
         "2 MENU BEGIN MENUITEM \"x\", 4 MENUITEM SEPARATOR END"},
        {"1 MENUEX BEGIN POPUP \"Popup text\", 1, 0, 0, 9 BEGIN MENUITEM \"Item\", 2 END END",
         "2 MENUEX BEGIN MENUITEM \"y\", 3 END"},
        {"1 RCDATA BEGIN \"a long string of bytes\", 1L, 2, L\"wide\" END", "2 RCDATA BEGIN 3 END"},
        {"1 RCDATA BEGIN 1, 2, 3, 4, 5, 6, 7, 8, 9 END", "2 RCDATA BEGIN END"},
        {"1 ACCELERATORS BEGIN \"a\", 1\n\"b\", 2, ALT\n65, 3, VIRTKEY END",
         "2 ACCELERATORS BEGIN \"x\", 4 END"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.small);
        fresh();
        auto alone = compile_ok(std::string(c.small) + "\n");
        fresh();
        auto after = compile_ok(std::string(c.large) + "\n" + c.small + "\n");
        ASSERT_EQ(alone.size(), 1u);
        ASSERT_EQ(after.size(), 2u);
        EXPECT_EQ(after[1].data, alone[0].data);
    }
}

TEST_F(Reuse, DuplicatesNameTheFileOfTheFirstDefinition) {
    set_extended_mode();
    write_file("a.rc", "\n1 RCDATA BEGIN 1 END\n");
    const std::string main_path = path_of("input.rc").string();
    const std::string included = path_of("a.rc").string();
    // Resources from the script, the included file and the script again:
    // each duplicate names the place of the first of its kind.
    EXPECT_EQ(compile_fail("2 RCDATA BEGIN 2 END\n#include \"a.rc\"\n"
                           "3 RCDATA BEGIN 3 END\n1 RCDATA BEGIN 4 END\n"
                           "2 RCDATA BEGIN 5 END\n3 RCDATA BEGIN 6 END\n"),
              (Lines{"4: error: Duplicate resource: type 10, name 1, language 0x409, first "
                     "defined in " +
                         included + " at line 2.",
                     "5: error: Duplicate resource: type 10, name 2, language 0x409, first "
                     "defined in " +
                         main_path + " at line 1.",
                     "6: error: Duplicate resource: type 10, name 3, language 0x409, first "
                     "defined in " +
                         main_path + " at line 3."}));
}

} // namespace

// Fuzz target: the preprocessor alone. Each input is preprocessed twice from
// a just-loaded library, once pulled in pieces of 32,768 units as the script
// lexer pulls, once in small pieces of 1 to 64 units, a size
// taken from the input's bytes. The text
// must not depend on the size of the pulls: equal when both runs end
// normally, one a prefix of the other when a fatal error cut them short, and
// both runs must end the same way.
#include "fuzz_common.h"

#include "cpp/preprocessor.h"
#include "diag/report.h"

namespace {

using namespace tarn_fuzz;

constexpr size_t LEXER_PULL = 32768;

struct Run {
    std::u16string text;
    bool fatal = false;
};

Run preprocess(size_t pull) {
    fresh_library();
    Run r;
    std::vector<char16_t> piece(pull);
    try {
        tarn::cpp_run_setup(folder().script.c_str());
        while (size_t n = tarn::readPreprocessed(piece.data(), pull)) {
            if (n > pull) fail("readPreprocessed returned more than asked");
            r.text.append(piece.data(), n);
        }
        tarn::cpp_run_finish();
    } catch (const tarn::FatalUnwind&) {
        r.fatal = true;
        tarn::close_all_sources();
    }
    return r;
}

bool is_prefix(const std::u16string& a, const std::u16string& b) {
    return a.size() <= b.size() && b.compare(0, a.size(), a) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return -1;
    write_input(data, size);
    unsigned fold = 0;
    for (size_t i = 0; i < size; ++i) fold = fold * 31 + data[i];
    size_t small = 1 + fold % 64;
    Run whole = preprocess(LEXER_PULL), pieces = preprocess(small);
    if (whole.fatal != pieces.fatal) fail("the pull size changed whether the run failed");
    // The start time is taken per run: its macros may differ between runs.
    std::string_view in(reinterpret_cast<const char*>(data), size);
    if (in.find("TIME") != in.npos || in.find("DATE") != in.npos) return 0;
    if (!whole.fatal && whole.text != pieces.text) fail("the pull size changed the text");
    if (whole.fatal && !is_prefix(whole.text, pieces.text) && !is_prefix(pieces.text, whole.text))
        fail("the pull size changed the text before a fatal error");
    return 0;
}

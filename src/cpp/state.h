// The preprocessor's process-wide state (one CppState) and the operations its
// files share: sources and buffers, the lexer, rows, symbols and hidesets,
// directives, expansion, #if and output. preprocessor.h is the outside view.
#pragma once

#include "cpp/report_pp.h"
#include "cpp/tokens.h"
#include "support/platform.h"
#include "support/state.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarn {

// ---- Token kinds beyond those of tokens.h (numbers fixed by the lexer table)
// clang-format off
enum : uint8_t {
    K_EQ = 9, K_NEQ, K_LEQ, K_GEQ, K_LSH, K_RSH, K_LAND, K_LOR,     // 9..16
    K_PPLUS, K_MMINUS, K_ARROW,                                      // 17..19
    K_SBRA, K_KET, K_LP, K_RP, K_DOT,                                // 20..24
    K_AND, K_STAR, K_PLUS, K_MINUS, K_TILDE, K_NOT, K_SLASH, K_PCT,  // 25..32
    K_LT, K_GT, K_CIRC, K_OR, K_QUEST, K_COLON, K_ASGN, K_COMMA,     // 33..40
    K_SEMIC = 42, K_CBRA, K_CKET,                                    // 42..44
    K_ASPLUS, K_ASMINUS, K_ASSTAR, K_ASSLASH, K_ASPCT, K_ASCIRC,     // 45..50
    K_ASLSH, K_ASRSH, K_ASOR, K_ASAND, K_ELLIPS,                     // 51..55
};
// clang-format on

// ---- Sources (source.cpp)
enum SourceEncoding : int32_t {
    EncodingUnknown = 0,
    EncodingCodePage = 1,
    EncodingUtf8 = 2,
    EncodingUtf16LE = 3,
    EncodingUtf16BE = 4,
    EncodingUtf32LE = 5,
    EncodingUtf32BE = 6,
};

constexpr char16_t BufferEndMark = 27; // refill due
constexpr char16_t InputEndMark = 26;  // the input ends here
constexpr size_t MARKER_UNITS = 4;
constexpr size_t INPUT_BUFFER_UNITS = 32768; // 65,536 bytes of text
constexpr size_t FILL_UNITS = 4096;          // room one refill needs (8,192 bytes)
constexpr size_t STAGING_BYTES = 4096;
constexpr size_t LINE_COMPACT_AT = 24576;    // three quarters of the buffer
constexpr size_t COMMENT_COMPACT_AT = 28672; // seven eighths

enum GuardWatch : uint8_t { GUARD_FIRST, GUARD_INSIDE, GUARD_AFTER, GUARD_OFF };

struct SourceFile {
    FileHandle file = nullptr; // null for a text input
    char16_t* buffer = nullptr;
    char16_t* cursor = nullptr;
    char16_t* end = nullptr; // markers stand here
    int32_t encoding = EncodingUtf16LE;
    int32_t line = 1;
    int32_t lineinc = 0;
    int32_t ifdepth = 0;
    const char16_t* name = nullptr; // not owned
    SourceFile* previous = nullptr;
    size_t capacity = INPUT_BUFFER_UNITS; // text room; grows when extended
    // Narrow text: its code page, which #pragma code_page may change for the
    // rest of the file, and the last chunk read (file offset after it, bytes
    // and units), so that what is buffered past the pragma can be read again.
    uint32_t code_page = 0;
    bool signature = false; // a byte-order mark fixes the whole file's encoding
    uint64_t raw_pos = 0;
    uint32_t chunk_bytes = 0;
    size_t chunk_units = 0;
    // Include-guard watch (include.cpp): whether the whole file is one
    // #ifndef X ... #endif read without a word said, so that a later include
    // while X is defined can stand in for reading it again.
    uint8_t guard = 0;
    const char16_t* guard_name = nullptr; // X, in the arena
    uint64_t guard_len = 0;
    int32_t guard_rows = 0;  // lines read, one row each
    int32_t guard_depth = 0; // deepest conditional nesting inside the file
    uint32_t guard_reports = 0;
};

// Adds the newlines that handling a line consumed. `#line` may have set the
// count near its limit; it wraps as 32-bit arithmetic does.
inline void advance_line(SourceFile* s) {
    s->line =
        static_cast<int32_t>(static_cast<uint32_t>(s->line) + static_cast<uint32_t>(s->lineinc));
}

SourceFile* pushSource(const char16_t* name, const char16_t* text);
void popSource();
int32_t fillbuf(SourceFile* s);
int foldLineSplice(SourceFile* s);
// Decodes the rest of the file (from the cursor on) with another code page;
// files with a byte-order mark keep theirs.
void switch_code_page(SourceFile* s, uint32_t code_page);
SourceEncoding detectEncoding(FileHandle f);

// ---- Lexer and rows (lexer.cpp, rows.cpp)
void build_lexer_table();
void makeRow(size_t capacity, TokenRow* row);
PpToken* growRow(size_t capacity, TokenRow* row);
void freeRow(TokenRow* row);
uint32_t lexLine(TokenRow* row, bool reset);
bool continues_name(char16_t c); // the unit keeps a name going

// Token flag bits: bit 0 as the lexer documents it; bit 1 marks a text that
// has a blank unit in front of it, so a space can be given without a copy.
constexpr uint8_t FLAG_INSERTED_SPACE = 1;
constexpr uint8_t FLAG_ROOM = 2;

inline size_t rowlen(const TokenRow* r) {
    return static_cast<size_t>(r->last - r->base);
}

// A working row for the length of a scope. Rows come from and go back to
// a list of spares, as every macro expansion needs one.
struct ScopedRow {
    TokenRow row{};
    explicit ScopedRow(size_t capacity);
    ScopedRow(const ScopedRow&) = delete;
    ScopedRow& operator=(const ScopedRow&) = delete;
    ~ScopedRow();
};

// The rows given back (giveBackRow), freed with the list.
struct SpareRows {
    std::vector<TokenRow> rows;
    size_t made = 0; // rows made so far: the room kept in `rows`
    SpareRows() = default;
    SpareRows(const SpareRows&) = delete;
    SpareRows& operator=(const SpareRows&) = delete;
    ~SpareRows();
};

// A row of at least `capacity` from the spares (made if there are none),
// and its return; a row that finds no room kept among them is freed.
// Every macro call needs a few rows: they come without the heap.
void takeSpareRow(size_t capacity, TokenRow* row);
void giveBackRow(TokenRow* row);
void copyRow(TokenRow* dst, const PpToken* from, const PpToken* to); // dst taken here
// Replaces n tokens at index `at` by the tokens of src; `spaced`: white
// space stood in front of the replaced tokens, and goes to the first token
// after the replacement. Blanks are added where tokens would run together.
void replaceTokens(TokenRow* row, size_t at, size_t n, const PpToken* src, size_t count,
                   bool spaced);
void eraseTokens(TokenRow* row, size_t at, size_t n);
// The blank (flag bit 0) that keeps a token apart from the one before it,
// if the two would otherwise be read as other tokens; an unneeded one goes.
void separateToken(TokenRow* row, size_t at);
// One unit of real white space in front of the token.
void giveSpace(PpToken* tp);
// The row as one newline token ("empty the row").
void emptyRow(TokenRow* row);
// Copy of tokens in storage of their own (texts included), as macro bodies
// keep them: one blank of room in front of each text, white space
// normalised to one unit, none before the first token.
TokenRow* persistentRow(const PpToken* from, const PpToken* to);
// A row of n tokens in the arena, for the caller to fill.
TokenRow* arenaRow(size_t n);

// ---- Symbols (macros.cpp)
enum SymbolFlag : uint8_t {
    SYM_DEFINED = 1,
    SYM_DIRECTIVE = 2,
    SYM_UNCHANGEABLE = 4,
    SYM_BUILTIN = 8,
};

enum Keyword : uint8_t {
    KW_IF = 0,
    KW_IFDEF,
    KW_IFNDEF,
    KW_ELIF,
    KW_ELSE,
    KW_ENDIF,
    KW_INCLUDE,
    KW_DEFINE,
    KW_UNDEF,
    KW_LINE,
    KW_ERROR,
    KW_PRAGMA,
    KW_DEFINED = 12, // the value `defined` carries while an #if line is expanded
    KW_LINE_MACRO = 13,
    KW_FILE_MACRO,
    KW_DATE_MACRO,
    KW_TIME_MACRO,
    KW_TARN_MACRO,
};
constexpr uint8_t KW_DEFINED_IDLE = 2; // the value `defined` has otherwise

struct Symbol {
    const char16_t* name = nullptr;
    uint64_t len = 0;
    TokenRow* replacement = nullptr;
    TokenRow* params = nullptr; // null: object-like
    uint8_t value = 0;
    uint8_t flags = 0;
    uint32_t hash = 0; // of the name; chooses the bucket, compared before the units
    // The set of this symbol alone, once made in the run numbered alone_run:
    // a cache, hence mutable.
    mutable uint32_t alone_run = 0;
    mutable uint32_t alone = 0;
};

// The symbol table is open-addressed: a search that meets another name's
// slot compares the hash and length kept in the table, without going to the
// symbol. The name is kept there too, so that a found name is compared while
// its symbol is on its way: in a large table each is a wait on memory.
struct SymbolSlot {
    Symbol* symbol = nullptr; // null: empty
    const char16_t* name = nullptr;
    uint32_t hash = 0;
    uint32_t len = 0; // UINT32_MAX: that or longer, and the symbol's is compared
};
constexpr size_t SYMBOL_BUCKETS = 1024; // at first; doubled when half full

// Every symbol, in table order.
template <class F> void for_each_symbol(F f);

Symbol* lookup_name(const char16_t* name, size_t len, bool install);
// For installing many saved names at once: room for `more` names, the slot
// of a name's hash asked for ahead of its lookup, and the lookup that installs
// a missing name without copying it (zero-terminated, outliving the table).
void reserve_symbols(size_t more);
void prefetch_symbol(uint32_t hash);
void prefetch_name(const char16_t* name, size_t len); // the slot of a name about to be looked up
Symbol* lookup_saved(const char16_t* name, size_t len, uint32_t hash);
inline Symbol* lookupSymbol(const PpToken* tp, bool install) {
    return lookup_name(tp->text, tp->len, install);
}
void seed_symbols();
void defineMacro(TokenRow* row);
void undefineMacro(TokenRow* row);
void defineFromArgument(TokenRow* row, int kind);
void expandRow(TokenRow* row, const char16_t* name);
void expandMacro(TokenRow* row, Symbol* sym);
bool symbol_is_defined(const PpToken* tp); // defined or built in

inline bool macro_bit_set(const uint32_t* bits, const PpToken* tp) {
    char16_t second = tp->len > 1 ? tp->text[1] : 0;
    return (bits[tp->text[0] & 63] & (1u << (second & 31))) != 0;
}

// ---- Hidesets (hideset.cpp)
void hideset_start();
uint32_t new_hideset(uint32_t hs, const Symbol* sym);
bool check_hideset(uint32_t hs, const Symbol* sym);
uint32_t unionHidesets(uint32_t a, uint32_t b);

constexpr size_t HIDESET_MAX_MEMBERS = 30;

struct HidesetTable {
    std::vector<uint32_t> start;        // first member of each set
    std::vector<const Symbol*> members; // each set in address order, then null
    std::vector<uint64_t> hashes;       // of each set
    std::vector<int32_t> slots;         // open-addressed index of the sets
    std::vector<const Symbol*> work;    // the set being made
    uint32_t run = 0;                   // counts the starts of the table
};

// ---- Directives, #include and #if (directives.cpp, include.cpp, ifexpr.cpp)
int processLines(TokenRow* row);
void runDirective(TokenRow* row);
void doInclude(TokenRow* row);
// The include-guard watch: each line of a file before it is handled and
// after, and the file's end (before it is closed).
void guard_watch(SourceFile* s, const TokenRow* row);
inline void guardLine(SourceFile* s, const TokenRow* row) {
    if (s->guard != GUARD_OFF) guard_watch(s, row);
}
inline void guardLineDone(SourceFile* s) {
    if (s->lineinc != 1) s->guard = GUARD_OFF; // a splice or a macro call over several lines
}
void guardFileDone(SourceFile* s);
void addIncludeDir(const char16_t* path, uint32_t kind, bool append);
void setup_include_dirs();
bool evalIf(TokenRow* row);
bool evalIfdef(TokenRow* row, bool negate);

constexpr int64_t MAX_IF_DEPTH = 31;
constexpr int32_t MAX_INCLUDE_DEPTH = 100;

enum IncludeKind : uint32_t { DIR_ANGLED = 1, DIR_STANDARD = 2 };

struct IncludeDir {
    IncludeDir* next = nullptr;
    const char16_t* path = nullptr;
    uint32_t kind = 0;
};

// ---- The run (preprocessor.cpp)
// The text of the run's date and time, for __DATE__ and __TIME__.
const std::string& run_time_text();

// ---- Output (output.cpp)
constexpr size_t OUTPUT_UNITS = 12288;
constexpr size_t OUTPUT_WORKING = 4096;

int put_tokens(TokenRow* row);
// Room for `units` at `out`, what it holds kept.
void grow_output(size_t units);
int writeLineMarker();
char16_t* scratch_alloc(size_t n);
void scratch_reset();

// ---- Storage
// Blocks that live until the library is reset (symbols, macro bodies, names).
struct Arena {
    std::vector<std::unique_ptr<char[]>> blocks;
    char* cur = nullptr;
    size_t left = 0;
    void* alloc(size_t bytes) {
        constexpr size_t ALIGN = 16;
        bytes = (bytes + ALIGN - 1) & ~(ALIGN - 1);
        if (bytes > left) return refill(bytes);
        void* p = cur;
        cur += bytes;
        left -= bytes;
        return p;
    }
    void* refill(size_t bytes);                  // a new block, when this one is used up
    char16_t* copy(const char16_t* s, size_t n); // zero-terminated copy
    template <class T> T* make() { return new (alloc(sizeof(T))) T(); }
};

// Storage for texts made while one line is handled; set back to its start
// whenever the line loop lexes a new line. Blocks are kept for reuse.
struct Scratch {
    std::vector<std::unique_ptr<char16_t[]>> blocks;
    std::vector<size_t> sizes;
    size_t block = 0;
    size_t used = 0;
};

// A header found to be one guarded conditional: what reading it again while
// its macro is defined would write (a line marker, then an empty line per row).
struct GuardedHeader {
    std::u16string macro;
    int32_t rows = 0;
    int32_t depth = 0;
};

// ---- The saved prelude (prelude_cache.cpp)
// In the extended dialect the effect of the windows.h prelude (its output,
// the macros, the guarded headers, the includes) is kept in a cache file
// and replayed while every header it read is unchanged: most of a small
// compile is otherwise spent reading the same headers again.
struct IncludeStep {
    std::u16string name;
    std::u16string includer;
    std::u16string path;
    bool angled = false;
    bool opened = false; // read, rather than stood in for as a guarded header
};

// What the prelude did, gathered while it is read for the first time.
struct PreludeCapture {
    const SourceFile* main = nullptr;
    std::u16string text;           // its output, the main script's name left out
    std::vector<uint32_t> main_at; // where that name stood
    std::vector<IncludeStep> includes;
    uint32_t reported = 0;
    bool spoiled = false; // something made it unrepeatable (a message, a pragma, the time)
    std::u16string file;  // the cache file to write
    std::u16string key;
    // A header the main script includes among its first lines, rather than
    // the prelude: its end ends the capture, which keeps only what it changed.
    bool header = false;
    const SourceFile* source = nullptr;
    std::vector<Symbol*> changed;        // defined or undefined in it
    std::vector<std::u16string> guarded; // headers found guarded in it
    uint64_t chain = 0;                  // the state it began from
};

// True when the prelude was replayed (s then holds only its last line);
// otherwise the capture may have started.
bool prelude_from_cache(SourceFile* s, const char16_t* prelude, size_t units);
// At the prelude's closing #line, or the end of a header being captured:
// the capture ends and is saved.
void capture_end();
void capture_output(const char16_t* text, size_t n);
void capture_main_name(size_t name_units);
void capture_include(const std::u16string& name, bool angled, const char16_t* includer,
                     const std::u16string& path, bool opened);

// The headers the main script includes among its first lines, saved like the
// prelude. The chain is nonzero while everything the script did so far
// follows from saved files: the prelude, then such includes and blank lines.
void header_chain_line(const TokenRow* row);
// At an include of the main script that continues the chain: true when the
// header was replayed; otherwise its capture may have started.
bool header_from_cache(const std::u16string& name, bool angled);
// A definition changed while a header is captured.
void capture_symbol(Symbol* sym);
// A header found guarded while a header is captured.
void capture_guarded(const char16_t* path);

// ---- Reading ahead (read_ahead.cpp)
// A long script is preprocessed on a thread of its own while the script
// compiler works on the text before. The thread makes the very pieces that
// readPreprocessed would make when asked, each with what it would have
// told the host (DeferredEffect), so nothing the host sees changes.
// Eight slots: a script alternates between parts that cost the preprocessor
// most (lines of macro names) and parts that cost the compiler most (long
// literals), and the room lets the side ahead keep its lead through both.
constexpr size_t READ_AHEAD_SLOTS = 8;
constexpr size_t READ_AHEAD_PIECES = 16; // per slot: one hand-over costs system calls
constexpr uint32_t READ_AHEAD_AFTER = 8; // pieces taken before the thread starts

// Pieces one after another in `text`, each followed by a zero; piece i
// ends at ends[i], and its effects at effect_ends[i].
struct ReadAheadSlot {
    // Not a vector, which would fill new room with zeros before the text
    // is copied over them.
    std::unique_ptr<char16_t[]> text;
    size_t room = 0; // units in text
    std::vector<size_t> ends;
    std::vector<DeferredEffect> effects;
    std::vector<size_t> effect_ends;
    std::exception_ptr failure; // what ended the thread's run, after the last piece's effects
    bool last = false;          // nothing follows (the end, or a failure)
};

struct ReadAheadState {
    PlatThread* thread = nullptr;
    PlatSemaphore* filled = nullptr; // slots ready for the script
    PlatSemaphore* room = nullptr;   // slots the thread may fill
    std::array<ReadAheadSlot, READ_AHEAD_SLOTS> slots;
    size_t fill = 0;      // the thread's next slot
    size_t max = 0;       // units per piece, as the script asks for them
    size_t take = 0;      // the script's slot,
    size_t piece = 0;     // its piece in there,
    size_t taken = 0;     // and the units of the slot's text taken so far
    bool holding = false; // the script's slot is taken from the thread, not yet used up
    bool begun = false;   // the current piece's effects are delivered
    bool drained = false; // the last piece was taken
    std::atomic<bool> stop{false};
    bool allowed = false; // this run's text goes to the script compiler
    uint32_t after = READ_AHEAD_AFTER;
    uint32_t requests = 0;
    uint32_t reported = 0; // reports when the thread started
    // The text lent to the script: the unit its ending zero replaced, the
    // units lent from the output buffer itself (no thread), and a slot to
    // give back to the thread once the script is done with it.
    char16_t* lentEnd = nullptr;
    char16_t lentSaved = 0;
    size_t lentOutput = 0;
    bool slotDone = false;
    ReadAheadSlot* filling = nullptr; // the slot the thread's output goes to
};

// Runs the preprocessor until the output holds a piece's worth (or the end);
// a piece is then at most the units asked for, from the output's front.
void fill_output();
// The output's first n units are taken: the rest moves to the front.
void drop_output(size_t n);
// grow_output while the thread fills a slot: the slot's room grows.
void grow_slot_output(size_t units);

// ---- All of it
constexpr size_t LEX_STOPS = 2;

struct CppState {
    // Sources
    SourceFile* source = nullptr;
    int32_t preludePending = 1;
    unsigned char staging_cp[STAGING_BYTES] = {};
    unsigned char staging_utf8[STAGING_BYTES] = {};

    // Lexer
    int16_t lexTable[32][256] = {};
    // Per literal or comment state, the units from 32 up that end its runs
    // (at most two, the second repeating the first if need be), each eight
    // times over; none when there are more (lexer.cpp).
    alignas(16) char16_t lexStops[32][LEX_STOPS][8] = {};

    TokenRow* lexing = nullptr; // the row the lexer appends to
    uint32_t macroBits[64] = {};

    // Symbols and hidesets
    std::vector<SymbolSlot> buckets = std::vector<SymbolSlot>(SYMBOL_BUCKETS);
    size_t symbolCount = 0;
    Symbol* definedSymbol = nullptr;
    Symbol* keywords[KW_PRAGMA + 1] = {}; // the directive keywords' entries, by value
    HidesetTable hidesets;

    // Conditionals and includes
    int64_t ifDepth = 0;
    int64_t skipLevel = 0;
    // One entry per depth; the extended dialect grows them past the limit.
    std::vector<uint8_t> ifState = std::vector<uint8_t>(MAX_IF_DEPTH + 1);
    std::vector<int32_t> ifLine = std::vector<int32_t>(MAX_IF_DEPTH + 1);
    int32_t includeDepth = 0;
    IncludeDir* includeDirs = nullptr;
    std::unordered_map<std::u16string, GuardedHeader> guarded; // by the path opened
    bool guardSkipped = false; // an include just stood in for one: its line marker is due

    // Output: `outpos` units made at `out`, which has room for `outsize`
    // (a line that needs more grows it in the extended dialect). `out` is
    // outbuf's own room, or a read-ahead slot's while the thread fills one.
    std::vector<char16_t> outbuf = std::vector<char16_t>(OUTPUT_UNITS);
    char16_t* out = outbuf.data();
    size_t outsize = OUTPUT_UNITS;
    size_t outpos = 0;
    bool preprocessDone = false;
    Scratch scratch;

    // The run
    TokenRow mainRow{};
    SpareRows spareRows;
    uint32_t pending = 0; // the line may hold a macro name
    // The run's date and time: its clock taken at the start, its text made
    // when a script first asks (the local time zone costs a file's reading).
    std::string startTime;
    int64_t startClock = 0;
    std::unique_ptr<PreludeCapture> capture; // while the prelude is first read
    bool preludeReplayed = false;
    std::unique_ptr<char16_t[]> preludeUnits; // a replayed prelude's file
    uint64_t headerChain = 0;
    uint64_t chainAfterLine = 0; // a replayed prelude: the chain starts after its #line
    uint32_t headersReplayed = 0;
    uint32_t headerSlotsTaken = 0; // the header cache's slots this run's chain took
    std::vector<std::unique_ptr<char16_t[]>> headerUnits; // replayed headers' files
    ReadAheadState readAhead;

    Arena arena;
};

extern CppState cpp;

template <class F> void for_each_symbol(F f) {
    for (const SymbolSlot& slot : cpp.buckets)
        if (slot.symbol) f(slot.symbol);
}

} // namespace tarn

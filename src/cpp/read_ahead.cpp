// Reading ahead: once a script has proved long, its preprocessing moves to a
// thread of its own, which makes the pieces readPreprocessed hands to the
// script compiler a few pieces early. Each piece is exactly what the
// preprocessor would make when asked, and what it would have told the host
// on the way (reports, include records) travels with it, delivered by the
// main thread when the script takes the piece. So the text, the messages,
// their order and locations, and the records are those of a preprocessor
// that runs only when asked; only the time changes.
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "diag/report.h"

namespace tarn {

namespace {

// The first slots hold fewer pieces, so that the script waits little for
// the first one.
size_t pieces_for(size_t slot_number) {
    return slot_number < 4 ? size_t(2) << slot_number : READ_AHEAD_PIECES;
}

// Room for `units` in the slot's text, keeping the first `used`: at first
// for the slot's pieces at their least (OUTPUT_WORKING units and a zero)
// and the output's room after them, doubled as they prove longer.
void make_room(ReadAheadSlot& slot, size_t units, size_t used, size_t pieces) {
    if (slot.room >= units) return;
    size_t room = std::max({units, 2 * slot.room, pieces * (OUTPUT_WORKING + 1) + cpp.outsize + 1});
    auto text = std::make_unique_for_overwrite<char16_t[]>(room);
    if (used) std::memcpy(text.get(), slot.text.get(), used * sizeof(char16_t));
    slot.text = std::move(text);
    slot.room = room;
}

// The output's room moves to `at` in the slot, where what it holds already
// stands. The slot's first room, sized for its pieces, is made by fill_slot.
void window_at(ReadAheadSlot& slot, size_t at) {
    make_room(slot, at + cpp.outsize + 1, at + cpp.outpos, 0);
    cpp.out = slot.text.get() + at;
}

// The preprocessor writes its output straight into the slot, each piece
// where the script will read it, so the text is never copied over. What is
// made beyond a slot's last piece waits in the output's own buffer.
void fill_slot(ReadAheadState& ra, ReadAheadSlot& slot, size_t pieces) {
    slot.ends.clear();
    slot.effects.clear();
    slot.effect_ends.clear();
    slot.failure = nullptr;
    ra.filling = &slot;
    size_t used = 0;
    deferred.list = &slot.effects;
    while (slot.ends.size() < pieces && !slot.last) {
        try {
            if (used == 0) { // what waits in the output's own buffer comes first
                make_room(slot, cpp.outsize + 1, 0, pieces);
                std::memcpy(slot.text.get(), cpp.out, cpp.outpos * sizeof(char16_t));
            }
            window_at(slot, used);
            fill_output();
            size_t n = std::min(cpp.outpos, ra.max);
            size_t rest = cpp.outpos - n;
            // The piece stays; what follows it moves on by the piece's zero.
            std::memmove(cpp.out + n + 1, cpp.out + n, rest * sizeof(char16_t));
            used += n;
            slot.text[used] = 0;
            cpp.outpos = rest;
            slot.last = n == 0;
        } catch (...) {
            slot.failure = std::current_exception();
            slot.last = true;
            cpp.outpos = 0; // the run ends with this piece
        }
        slot.ends.push_back(used++);
        slot.effect_ends.push_back(slot.effects.size());
        cpp.out = slot.text.get() + used; // the rest, inside the room made for it
    }
    ra.filling = nullptr;
    deferred.list = nullptr;
    try {
        if (cpp.outbuf.size() < cpp.outsize) cpp.outbuf.resize(cpp.outsize);
        std::memcpy(cpp.outbuf.data(), cpp.out, cpp.outpos * sizeof(char16_t));
    } catch (...) {
        slot.failure = std::current_exception();
        slot.last = true;
        cpp.outpos = 0;
    }
    cpp.out = cpp.outbuf.data();
}

void read_ahead_body(void*) {
    ReadAheadState& ra = cpp.readAhead;
    deferred.reported = ra.reported;
    for (;;) {
        plat_semaphore_wait(ra.room);
        if (ra.stop.load(std::memory_order_acquire)) return;
        size_t number = ra.fill++;
        ReadAheadSlot& slot = ra.slots[number % READ_AHEAD_SLOTS];
        slot.last = false;
        fill_slot(ra, slot, pieces_for(number));
        bool last = slot.last; // the slot is the script's once handed over
        plat_semaphore_post(ra.filled);
        if (last) return;
    }
}

void release(ReadAheadState& ra) {
    plat_thread_join(ra.thread);
    ra.thread = nullptr;
    plat_semaphore_destroy(ra.filled);
    plat_semaphore_destroy(ra.room);
    ra.filled = ra.room = nullptr;
}

// False when the system gives no thread: the run goes on without one.
bool start(size_t max) {
    ReadAheadState& ra = cpp.readAhead;
    ra.filled = plat_semaphore_create(0);
    ra.room = plat_semaphore_create(READ_AHEAD_SLOTS);
    // Room for every piece's ends here, so that the thread's bookkeeping
    // never allocates outside the part that catches a failure.
    for (ReadAheadSlot& slot : ra.slots) {
        slot.ends.reserve(READ_AHEAD_PIECES);
        slot.effect_ends.reserve(READ_AHEAD_PIECES);
    }
    ra.max = max;
    ra.stop.store(false);
    ra.reported = diag_state.reported;
    if (ra.filled && ra.room)
        ra.thread = plat_thread_start(read_ahead_body, nullptr, "tarn-preprocess");
    if (!ra.thread) {
        release(ra);
        ra.allowed = false;
        return false;
    }
    return true;
}

bool worth_starting() {
    ReadAheadState& ra = cpp.readAhead;
    // A prelude being captured for the cache is finished where it began.
    return ra.allowed && !cpp.preprocessDone && !cpp.capture && ++ra.requests > ra.after;
}

// The script's next piece: its effects delivered, a failure thrown.
ReadAheadSlot& next_piece(ReadAheadState& ra) {
    ReadAheadSlot& slot = ra.slots[ra.take % READ_AHEAD_SLOTS];
    if (!ra.holding) {
        plat_semaphore_wait(ra.filled);
        if (slot.last) release(ra); // the thread has ended
        ra.holding = true;
        ra.piece = ra.taken = 0;
    }
    if (!ra.begun) {
        ra.begun = true;
        size_t from = ra.piece ? slot.effect_ends[ra.piece - 1] : 0;
        for (size_t i = from; i < slot.effect_ends[ra.piece]; ++i) deliver_effect(slot.effects[i]);
        if (slot.failure && ra.piece + 1 == slot.ends.size()) {
            ra.drained = true;
            std::rethrow_exception(slot.failure);
        }
    }
    return slot;
}

// Units lent to the script end in a zero, which may stand on the first unit
// of what follows; settle puts that unit back.
char16_t* lend(ReadAheadState& ra, char16_t* text, size_t n) {
    ra.lentEnd = text + n;
    ra.lentSaved = text[n];
    text[n] = 0;
    return text;
}

// What the script was lent is done with: the unit under its zero restored,
// units lent from the output buffer dropped from it (the rest moves to the
// front, as when copied out), a used slot given back to the thread.
void settle(ReadAheadState& ra) {
    if (ra.lentEnd) *ra.lentEnd = ra.lentSaved;
    ra.lentEnd = nullptr;
    if (ra.lentOutput) drop_output(ra.lentOutput);
    ra.lentOutput = 0;
    if (ra.slotDone) plat_semaphore_post(ra.room);
    ra.slotDone = false;
}

} // namespace

void read_ahead_allow() {
    cpp.readAhead.allowed = true;
}

void read_ahead_stop() {
    ReadAheadState& ra = cpp.readAhead;
    settle(ra);
    if (ra.thread) {
        ra.stop.store(true, std::memory_order_release);
        plat_semaphore_post(ra.room);
        release(ra);
    }
    ra.allowed = ra.holding = ra.begun = ra.drained = false;
    ra.take = ra.fill = ra.piece = ra.taken = 0;
    ra.requests = 0;
}

void grow_slot_output(size_t units) {
    ReadAheadSlot& slot = *cpp.readAhead.filling;
    cpp.outsize = units;
    window_at(slot, static_cast<size_t>(cpp.out - slot.text.get()));
}

const char16_t* lendPreprocessed(size_t max, size_t* n) {
    ReadAheadState& ra = cpp.readAhead;
    settle(ra);
    *n = 0;
    static const char16_t nothing[1] = {0};
    if (ra.drained) return nothing;
    if (!ra.thread && !ra.holding && (!worth_starting() || !start(max))) {
        fill_output();
        *n = ra.lentOutput = std::min(cpp.outpos, max);
        return lend(ra, cpp.out, *n);
    }
    ReadAheadSlot& slot = next_piece(ra);
    char16_t* from = slot.text.get() + ra.taken;
    size_t end = slot.ends[ra.piece];
    *n = std::min(max, end - ra.taken);
    ra.taken += *n;
    if (ra.taken == end) { // the piece is used up
        ra.begun = false;
        ra.taken += 1; // its ending zero
        if (++ra.piece == slot.ends.size()) {
            ra.holding = false;
            ++ra.take;
            if (slot.last)
                ra.drained = true;
            else
                ra.slotDone = true;
        }
    }
    return lend(ra, from, *n);
}

size_t readPreprocessed(char16_t* dest, size_t max) {
    size_t n = 0;
    const char16_t* text = lendPreprocessed(max, &n);
    std::memcpy(dest, text, n * sizeof(char16_t));
    return n;
}

} // namespace tarn

// The compiled resource (.res) writer: a 32-byte empty leading entry, then
// per resource a ResourceHeader and its data, each padded to 4 bytes. All
// layouts are written field by field, little-endian. The file is written
// strictly front to back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "support/platform.h"
#include "support/state.h"

namespace tarn {

constexpr uint32_t COPY_BUFFER_SIZE = 4096;

// Each returns 0 or a platform error number; callers report code | 0x8000.
// Creates the output, then the 32-byte leading entry. They are two steps
// because their failures are reported differently. The output replaces the
// named file only at commit_output; until then that file is untouched.
uint32_t create_output(const char16_t* path);
uint32_t write_leading_entry();
// Writes what is still buffered; a compilation flushes and checks before it
// closes, since close_output ignores failures.
uint32_t flush_output();
// From start to stop, larger buffers are written by a thread of their own
// while the next is filled (by the caller when there is no thread). Stop
// waits for the last and returns the first failure; the buffer being
// filled stays unwritten. A second start or stop does nothing.
void start_writing_behind();
uint32_t stop_writing_behind();
void close_output();
// After a successful compile: the closed output takes its name.
uint32_t commit_output();
// After a failed one: the output is closed and what it wrote removed; the
// named file is never deleted.
void discard_output();
uint32_t write_bytes(const void* buffer, uint32_t count);
uint32_t output_position();
// The next `count` bytes will be written: the file system may allocate them now.
void reserve_output(uint64_t count);
uint32_t pad_to_4(uint32_t value);
uint32_t name_size(const NameOrOrdinal& name);
uint32_t write_name(const NameOrOrdinal& name);
uint32_t write_u16(uint16_t v);
uint32_t write_u32(uint32_t v);
uint32_t header_size(const NameOrOrdinal& type, const NameOrOrdinal& name);
uint32_t write_resource_header(uint32_t data_size, const ResourceAttributes& attributes,
                               const NameOrOrdinal& type, const NameOrOrdinal& name);
uint32_t copy_file_rest(FileHandle input);

} // namespace tarn

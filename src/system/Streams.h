// Buffered streams and raw descriptors, opened and closed under one lock of the process.
//
// A function that creates or destroys an open file holds the system lock for the length of that one
// call. Every shell command (QB_system) does the same, so a command never starts while another
// thread is half-way through opening a file. Reading and writing take no lock.
//
// The caller owns every stream, descriptor and buffer. Paths are NUL-terminated UTF-8. A function
// that fails returns what the system reports (null, -1), or 0 in place of 1; nothing is logged. Any
// thread may call these functions.
#pragma once

#include <stdio.h>

#include <cstdint>

#include "system/SystemLock.h"  // QB_lock_mutex, QB_unlock_mutex

namespace sorvane {

/// Opens a stream; `mode` is that of fopen. Programs that are started later do not inherit the
/// stream. Returns null on failure.
[[nodiscard]] FILE* VN_fopen(const char* path, const char* mode);

/// Closes a stream. Returns the result of releasing the lock, 0. A failed close is not reported.
int VN_fclose(FILE* stream);

/// Reads one line of at most `size - 1` bytes, its line feed included, and returns `buffer`.
/// Returns null at the end of the file or on an error.
char* VN_fgets(char* buffer, int size, FILE* stream);

/// Like VN_fgets, but then ends the text at the first line feed, and after that at the first
/// carriage return. A carriage return in the middle of a line therefore cuts the line there.
char* VN_fgets_nocr(char* buffer, int size, FILE* stream);

/// Returns the next byte, 0 to 255, or -1 at the end of the file or on an error.
[[nodiscard]] int VN_fgetc(FILE* stream);

/// Reads up to `count` bytes and returns how many it read. Returns 0 for a negative count.
int VN_read(FILE* stream, void* buffer, int count);

/// Opens a file for reading and writing. A missing file is created, readable and writable for all
/// less the process's mask. Programs that are started later do not inherit the descriptor. Returns
/// -1 on failure.
[[nodiscard]] int VN_ropen(const char* path);

/// Closes a descriptor. Returns the result of releasing the lock, 0.
int VN_rclose(int descriptor);

/// Reads up to `length` bytes in one call. Returns 1 even when it read fewer bytes, or none at the
/// end of the file. Returns 0 when reading fails.
[[nodiscard]] int VN_rread(int descriptor, void* buffer, std::uint32_t length);

/// Writes in one call. Returns 1 when all `length` bytes were written, else 0.
[[nodiscard]] int VN_rwrite(int descriptor, const void* buffer, std::uint32_t length);

/// Moves to `offset` bytes from the start of the file. Returns 1, or 0 on failure.
[[nodiscard]] int VN_rseek(int descriptor, std::int64_t offset);

/// Does nothing, because raw writes are not buffered here. Always returns 1.
int VN_rflush();

}  // namespace sorvane

// Buffered streams and raw descriptors, opened and closed under one lock of the process.
//
// Whatever creates or destroys an open file, and every shell command (QB_system), holds the system
// lock for the length of that one call, so that a command never starts while another thread is
// half-way through opening a file. Reading and writing take no lock.
//
// The caller owns every stream, descriptor and buffer. Paths are NUL-terminated UTF-8. Failures
// come back as the system reports them (null, -1) or as 0 in place of 1; nothing is logged. Any
// thread.
#pragma once

#include <stdio.h>

#include <cstdint>

#include "system/SystemLock.h"  // QB_lock_mutex, QB_unlock_mutex

namespace sorvane {

/// Opens a stream; `mode` as for fopen. Not inherited by programs started later. Null when it
/// fails.
[[nodiscard]] FILE* VN_fopen(const char* path, const char* mode);

/// Closes a stream. The answer is that of releasing the lock, 0: a failed close is not reported.
int VN_fclose(FILE* stream);

/// Reads one line of at most `size - 1` bytes, its line feed included. Null at the end of the file
/// or on an error.
char* VN_fgets(char* buffer, int size, FILE* stream);

/// Like VN_fgets; then the first line feed in the buffer, and after it the first carriage return,
/// each end the text. A carriage return in the middle of a line cuts it there.
char* VN_fgets_nocr(char* buffer, int size, FILE* stream);

/// The next byte, 0 to 255, or -1 at the end of the file or on an error.
[[nodiscard]] int VN_fgetc(FILE* stream);

/// Reads up to `count` bytes; answers how many. 0 for a negative count.
int VN_read(FILE* stream, void* buffer, int count);

/// Opens a file for reading and writing and creates it when it is missing, readable and writable
/// for all less the process's mask. Not inherited by programs started later. -1 when it fails.
[[nodiscard]] int VN_ropen(const char* path);

/// Closes a descriptor. The answer is that of releasing the lock, 0.
int VN_rclose(int descriptor);

/// Reads up to `length` bytes in one call. 1 also when fewer came, none at the end of the file
/// included; 0 when reading fails.
[[nodiscard]] int VN_rread(int descriptor, void* buffer, std::uint32_t length);

/// Writes in one call. 1 only when all `length` bytes were written, else 0.
[[nodiscard]] int VN_rwrite(int descriptor, const void* buffer, std::uint32_t length);

/// Moves to `offset` bytes from the start of the file. 1, or 0 when that fails.
[[nodiscard]] int VN_rseek(int descriptor, std::int64_t offset);

/// Does nothing, as raw writes are not buffered here. Always 1.
int VN_rflush();

}  // namespace sorvane

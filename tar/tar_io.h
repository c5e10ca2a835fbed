// Whole reads and writes.
#pragma once

// Reads until `count` bytes, end of file or an error. Returns the bytes read (less than count: end of file),
// or -1 on an error.
int read_fully(int fd, void* buf, int count);

// Writes until all `count` bytes are written. Returns count, or -1 on an error, errno telling why.
int write_fully(int fd, const void* buf, int count);

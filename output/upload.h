// Announcing a finished file to the platform's upload service.
#pragma once

#include "output/error_info.h"

// Describes the error in apr_info.txt and files the command that would upload `file_path` in the exception
// log. Stops at the first step that fails, after a message; the file stays in any case. Called under the
// output lock or the compress lock. If two uploads overlap, apr_info.txt describes the later one.
void dmd_file_upload(const char* file_path, const dmd_error_info* info);

// Writes the four lines of apr_info.txt that describe the error. False when nothing was written. From the
// first call on the process's umask is 0.
bool write_apr_upload_info(const dmd_error_info* info);

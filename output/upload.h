// Announcing a finished file to the platform's upload service.
#pragma once

#include "output/error_info.h"

// Describes the error in apr_info.txt and files the command that would upload `file_path` in the exception
// log. Stops after a message at the step that fails; the file stays in any case. Called under the output lock
// or the compress lock, which may overlap: apr_info.txt then describes the later upload.
void dmd_file_upload(const char* file_path, const dmd_error_info* info);

// Writes the four lines of apr_info.txt that describe the error. False when nothing was written. From the
// first call on the process's umask is 0.
bool write_apr_upload_info(const dmd_error_info* info);

// The desk stand-in of the phone's log: where its lines go.
#pragma once

// Receives each message as it would be printed (no prefix, no added newline), on the logging thread.
using DeskLogSink = void (*)(int priority, const char* tag, const char* text);

// Sends every later message to `sink` in place of standard error; null restores standard error. Set it while
// no other thread logs.
void desk_log_set_sink(DeskLogSink sink);

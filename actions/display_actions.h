// Dump operations of the display.
#pragma once

#include "clients/client.h"

// How long the graphics side may take to write its frames.
constexpr int FRAME_WAIT_SECONDS = 60;

// Has the graphics side write the frames that it is composing, waits at most 60 seconds for that, and saves
// each bitmap written meanwhile as a compressed dump of its own. Takes no lock over the wait. Returns 0 when
// the folder of the bitmaps was looked through, and -1 when it could not be, in time or to its end, on a null
// argument and on a commercial build.
int lcd_force_dump_error(dmd_client* client, int error_no, const char* RT_switch);

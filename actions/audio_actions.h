// Dump operations of the audio clients. On a commercial build those that only produce files do nothing.
//
// The produced files are shared by name between operations and clients: all of these sit in dump slots, which
// one thread, the listen server's, runs one after the other.
#pragma once

#include "clients/client.h"

// How long the DSP and the codec may take to write their images after an error.
constexpr unsigned int AUDIO_IMAGE_WAIT_SECONDS = 5;

// Writes the codec's registers to /data/zc8830dump.log. Always 0.
int codec_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Prints the audio DSP's log. Always 0.
int hifi_force_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Writes what the media services say of themselves to files in /data. Always 0.
int media_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Reports the client's error text with the audio DSP's log and all files that the operations above produce,
// and removes those files. 0, or -1 on a null argument or no memory. Waits 5 seconds for the log once a text
// was read.
int audio_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Reports the client's error text with the memory images and the log of the audio DSP. 0, or -1 on a null
// argument or no memory. Waits 10 seconds for the images once a text was read.
int soc_hifi_reset_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Reports the client's error text with the memory images of the codec and the files of the audio DSP. 0, or
// -1 on a null argument or no memory. Waits 5 seconds for the images once a text was read.
int codec_hifi_reset_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Dumps the codec's registers, reports the client's error text with them, and removes the file. 0, or -1 on a
// null argument or no memory.
int maxim_smartpa_dump_error(dmd_client* client, int error_no, const char* RT_switch);

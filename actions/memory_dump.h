// Where the phone's processors leave images of their memory, each dump in a folder of its own.
#pragma once

constexpr char MEMORY_DUMP_DIR[] = "/data/ruvo_logs/memorydump";

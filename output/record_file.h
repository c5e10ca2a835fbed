// The ring of record files and which of them is the current one.
#pragma once

#include "output/output_dir.h"
#include "output/output_lock.h"
#include "platform/owned.h"

// What the record writer keeps between reports.
struct record_state {
    int index = 0;  // the number in the current file's name
    UniqueFd fd;    // none before a file was chosen, and when it could not be opened or is gone
    char path[PATH_SIZE] = "";
    int is_commercial_version = 1;  // taken whenever the file is chosen
};

extern record_state record GUARDED_BY(output_lock);

// Chooses the record file: the most recently modified one, or the one after it when that is full. Opens it
// and takes the product version anew.
void find_recently_file() REQUIRES(output_lock);

// Makes `record` ready for one more report: chooses a file when none is open, and goes on to the next one of
// the ring when the current one is full. False after a message when there is no file to write to; the next
// call then chooses again.
bool prepare_record_file() REQUIRES(output_lock);

// Makes the current file, which is written to now, the latest one at the next start too, whatever the clock
// has done: no other record file keeps a time from the last second or from the future, and the ring keeps its
// order. prepare_record_file does it before a report; done after one as well, it holds when the clock was set
// back meanwhile.
void date_other_records_back() REQUIRES(output_lock);

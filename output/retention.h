// Keeping the dump archives bounded.
#pragma once

// One retention pass over the output directory: removes uncompressed leftovers and, when the ".gz" dump
// archives together hold more than 10 MiB, the oldest one. Returns -1 when the directory cannot be opened,
// the status of the deleting command when an archive was deleted, and 0 otherwise. Passes under different
// locks may overlap.
int check_compress_file();

// Protects a dump in progress from the retention passes of other threads, which would take it for a leftover.
// Its constructor waits while another thread makes a dump of the same name or removes a leftover of that
// name. Use it under the output lock or the compress lock, one at a time under each.
class DumpInProgress {
  public:
    explicit DumpInProgress(const char* path);
    ~DumpInProgress();
    DumpInProgress(const DumpInProgress&) = delete;
    DumpInProgress& operator=(const DumpInProgress&) = delete;

  private:
    char* const name_;
};

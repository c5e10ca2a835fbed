// Keeping the dump archives bounded.
#pragma once

// One retention pass over the output directory: removes uncompressed leftovers and, when the ".gz" dump
// archives together hold more than 10 MiB, the oldest one. Returns -1 when the directory cannot be opened,
// the status of the deleting command when an archive was deleted, and 0 otherwise. Passes under different
// locks may overlap.
int check_compress_file();

// Keeps a dump that is still being made from the retention passes of other threads, which would take it for a
// leftover, until the end of its scope. Waits where the other road has that very name: for a dump, or to
// remove a leftover. For use under the output lock or the compress lock, one at a time under each.
class DumpInProgress {
  public:
    explicit DumpInProgress(const char* path);
    ~DumpInProgress();
    DumpInProgress(const DumpInProgress&) = delete;
    DumpInProgress& operator=(const DumpInProgress&) = delete;

  private:
    char* const name_;
};

// The archive tool's command, called with the words of a command line.
#pragma once

// Runs argv[1], a group of letters, on the operands behind it; argv has argc words and a null behind them:
// 'c' creates an archive, 'f' says that argv[2] names it (otherwise the name is "-"), 'x' is for reading,
// which is not there yet, and others have no effect. Returns what write_tar_file returned, -22 when argc is 2
// or less, -1 with 'x' or without 'c'. Call it without lookup_mutex.
int dmd_tar_main(int argc, char** argv);

// The archive tool's command, called with the words of a command line.
#pragma once

// Runs argv[1], a group of letters, on the operands behind it; argv has argc words and a null behind them:
// 'c' creates an archive of the operands, 'x' makes the members that match one of the operands, or all
// without any, under the current directory. 'f' says that argv[2] names the archive; otherwise the name is
// "-", which is the standard input to 'x' and a file of that name to 'c'. Other letters have no effect.
//
// Returns what write_tar_file or read_tar_file returned; -22 when argc is 2 or less; -1 with both letters,
// with neither, or when the archive to read could not be opened. Call it without lookup_mutex, and with 'x'
// as read_tar_file asks.
int dmd_tar_main(int argc, char** argv);

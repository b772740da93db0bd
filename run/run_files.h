// The files of a run, read and written, and the check that no two of them
// are one file, made before anything is opened for writing: an output
// named like another output would cut it short, one named like an input
// (a configuration file, "bftdtest.dsc", the pattern file, the virtual
// drive's description or backing file) would destroy it. Names are
// compared by what they stand for on the disk (os_same_file), not by
// spelling. Main thread, after option parsing and the virtual drive's
// configuration.
#pragma once

// 0, or -1 after "ERROR: the <file> \"<name>\" and the <file> \"<name>\" are
// one file\n" on the error stream, naming the first such pair.
int check_run_files();

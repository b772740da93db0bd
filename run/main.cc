// bftdtest: tests one SCSI tape drive by writing, reading back and comparing
// test data. All of the program lives in the library; this is its entry.
#include "run/run_sequence.h"

int main(int argc, char** argv) { return run_program(argc, argv); }

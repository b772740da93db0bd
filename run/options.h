// The command line and the `/cfg` configuration file.
#pragma once

#include <cstdint>
#include <cstdio>

// 0 when the run may go on, non-zero after an error message or the help
// screen (which also sets `exit_code` to 0).
int parse_options(uint16_t argument_count, char** arguments);
// Reads the tokens of a configuration file; returns their count + 1. Mode 0
// counts only, mode 1 also copies each token into arguments[1..].
uint16_t read_config_args(FILE* file, int mode, char** arguments);
void print_help();
// Back to the state before any parse (not inside a configuration file).
void reset_option_parser();

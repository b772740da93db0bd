// Line cleaning and tokenizing shared by the configuration file (`/cfg`) and
// the drive status configuration file ("bftdtest.dsc"): both files separate
// their tokens by any run of blanks, commas, '=', carriage returns and line
// feeds.
#pragma once

// Cuts `line` at its first carriage return or line feed and turns every TAB
// and every end-of-file mark (Ctrl-Z, 0x1A) into a blank.
void clean_config_line(char* line);

// Returns the next token at `*cursor` and moves the cursor past it; the token
// is terminated in place. Returns nullptr when the text holds no more tokens.
char* next_config_token(char** cursor);

// Test support: what a piece of the program writes to the screen, in memory.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "console/log_output.h"

template <class Action>
std::string screen_of(Action action) {
  char* text = nullptr;
  size_t length = 0;
  FILE* memory = open_memstream(&text, &length);
  set_screen_stream(memory);
  action();
  set_screen_stream(nullptr);
  std::fclose(memory);
  std::string screen(text, length);
  std::free(text);
  return screen;
}

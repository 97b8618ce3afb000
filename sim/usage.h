// The usage text of tarn_sim, shared by all its commands.
#pragma once

#include <string>

// Writes "tarn_sim: MSG" (when `msg` is not empty) and the usage text to standard error, and
// returns the exit status of a usage error, 2.
int usage_error(const std::string& msg);

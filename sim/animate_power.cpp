#include "animate.h"

void animate_power(const std::string&, unsigned) {}

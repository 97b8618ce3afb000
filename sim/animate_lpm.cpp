#include "animate.h"

void animate_lpm(const std::string&, unsigned) {}

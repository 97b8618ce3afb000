#include "animate.h"

void animate_thermal(const std::string&, unsigned) {}

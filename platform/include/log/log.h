// Host stand-in for <log/log.h>.
#pragma once

#include <android/log.h>

// The thermal handler called before the collector's init has run. Building the sampling core
// runs that init, so this binary calls the handler before anything touches the core: the zone
// record is complete before its upload builds the core.
#include <gtest/gtest.h>

#include "collectors/thermal_fixture.h"

TEST(ThermalBeforeInit, ZoneRecordHoldsOnlySkinTemperatureAndCurrent) {
    // Nodes that would all be reported once init has run.
    thermal_test::write_tree({{"cpuss-0", 45000}, {"quiet-therm", 31000}}, {{"cpufreq-cpu0", 4}});
    thermal_test::write_side_nodes();
    EXPECT_EQ(std::vector<std::string>{"skin-temp: 0,current:-1234,"},
              thermal_test::records_of(0x1, "com.android.launcher3"));
}

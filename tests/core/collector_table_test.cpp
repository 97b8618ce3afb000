// The table walk and the configuration pass, on a table of the test's own with recording handlers.
#include "collector_table.h"

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

namespace {

std::vector<uint64_t> gCalls;  // flag of every handler call

int32_t record(uint64_t flag) {
    gCalls.push_back(flag);
    return 0;
}

// Rows with the daemon's ids in its order; each row's flag starts as its id to tell calls apart.
struct CollectorTableTest : ::testing::Test {
    void SetUp() override {
        gCalls.clear();
        const int ids[COLLECTOR_TABLE_ROWS] = {2, 3, 4, 5, 6, 7, 8, 9, 1000, 2000, 3000, 3000};
        for (int i = 0; i < COLLECTOR_TABLE_ROWS; ++i)
            table[i] = {ids[i], 0, 0, static_cast<uint64_t>(ids[i]), nullptr, nullptr, record};
    }
    void tick(int n) {
        for (int i = 0; i < n; ++i) run_collector_tick(table, mutex);
    }
    void battery_period(int32_t period) {
        configure_collector_table(table, {0, 0, 0, period, 0, 0, 0, 0, 0}, {}, {});
    }
    CollectorEntry table[COLLECTOR_TABLE_ROWS];
    std::mutex mutex;
};

TEST_F(CollectorTableTest, ConfigurationPassWritesPeriodsAndOnlyThermalAndStabilityFlags) {
    table[2].id = 1001;  // not a row key: reported, left alone, and the pass goes on
    table[2].expire = 42;
    configure_collector_table(table, {~0ULL, 3, 4, 2, 5, 6, 7, 8, 9}, {0x4000000000000002ULL, 10},
                              {0x8000000000000004ULL, 20});
    for (int i : {0, 1, 3, 4, 5, 6, 7}) {
        EXPECT_EQ(table[i].id, table[i].expire) << "row " << i;
        EXPECT_EQ(uint64_t(table[i].id), table[i].flag) << "power flags are never written";
    }
    EXPECT_EQ(42, table[2].expire);
    EXPECT_EQ(10, table[8].expire);
    EXPECT_EQ(0x4000000000000002u, table[8].flag);
    EXPECT_EQ(20, table[9].expire);
    EXPECT_EQ(0x8000000000000004u, table[9].flag);
    EXPECT_EQ(0, table[10].expire) << "the MTBF row carries the end id";
}

TEST_F(CollectorTableTest, DueRuleRunsRowsInOrderAndKeepsCountsAcrossPeriodChanges) {
    for (auto& row : table) row.expire = 1;
    tick(1);
    EXPECT_EQ((std::vector<uint64_t>{2, 3, 4, 5, 6, 7, 8, 9, 1000, 2000}), gCalls);

    // Battery every tenth tick, everything else off; off rows keep their counts.
    table[1].count = 4;
    battery_period(10);
    tick(7);
    EXPECT_EQ(10u, gCalls.size());
    EXPECT_EQ(4, table[1].count);
    // A shorter period than the count runs on the next tick, then every period; below 1 is off.
    battery_period(5);
    tick(1);
    EXPECT_EQ(11u, gCalls.size());
    tick(4);
    EXPECT_EQ(11u, gCalls.size());
    tick(1);
    EXPECT_EQ(12u, gCalls.size());
    battery_period(-1);
    tick(10);
    EXPECT_EQ(12u, gCalls.size());
}

// A campaign that arrives while a handler runs: the handler holds no table lock, so the
// configuration pass goes through at once, and the rows after it in the same tick see the new
// periods.
CollectorTableTest* gMidTick = nullptr;
int32_t configure_mid_tick(uint64_t flag) {
    std::lock_guard<std::mutex> lock(gMidTick->mutex);
    configure_collector_table(gMidTick->table, {0, 1, 0, 0, 0, 0, 0, 0, 0}, {}, {});
    return record(flag);
}

TEST_F(CollectorTableTest, CampaignInTheMiddleOfATick) {
    gMidTick = this;
    table[0].hndl = configure_mid_tick;
    battery_period(1);
    table[2].expire = 1;  // the GPU row is on until the campaign turns it off
    tick(2);
    // Tick 1: battery reconfigures (battery off, CPU on), then CPU runs; GPU was turned off.
    // Tick 2: only CPU.
    EXPECT_EQ((std::vector<uint64_t>{2, 3, 3}), gCalls);
}

}  // namespace

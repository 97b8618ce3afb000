// The table walk and the configuration pass, on tables of the test's own with recording handlers.
#include "core/collector_table.h"

#include <gtest/gtest.h>

#include <mutex>
#include <utility>
#include <vector>

namespace {

std::vector<std::pair<int, uint64_t>> gCalls;  // (row id, flag) per handler call, in order

template <int ID>
int32_t record(uint64_t flag) {
    gCalls.emplace_back(ID, flag);
    return 0;
}

class CollectorTableTest : public ::testing::Test {
  protected:
    void SetUp() override { gCalls.clear(); }

    void tick(int n = 1) {
        for (int i = 0; i < n; ++i) run_collector_tick(table, mutex);
    }
    std::vector<int> ids() const {
        std::vector<int> out;
        for (auto& c : gCalls) out.push_back(c.first);
        return out;
    }

    // Same ids and order as the daemon's table, each row with a recording handler.
    CollectorEntry table[COLLECTOR_TABLE_ROWS] = {
        {2, 0, 0, 0, nullptr, nullptr, record<2>},
        {3, 0, 0, 0, nullptr, nullptr, record<3>},
        {4, 0, 0, 0, nullptr, nullptr, record<4>},
        {5, 0, 0, 0, nullptr, nullptr, record<5>},
        {6, 0, 0, 0, nullptr, nullptr, record<6>},
        {7, 0, 0, 0, nullptr, nullptr, record<7>},
        {8, 0, 0, 0, nullptr, nullptr, record<8>},
        {9, 0, 0, 0, nullptr, nullptr, record<9>},
        {1000, 0, 0, 0, nullptr, nullptr, record<1000>},
        {2000, 0, 0, 0, nullptr, nullptr, record<2000>},
        {3000, 0, 0, 0, nullptr, nullptr, record<3000>},
        {3000, 0, 0, 0, nullptr, nullptr, nullptr},
    };
    std::mutex mutex;
};

TEST_F(CollectorTableTest, ConfigurationPassMapsEachPeriodToItsRow) {
    PowerIntervalCfg power = {~0ULL, 3, 4, 2, 5, 6, 7, 8, 9};
    ThermalIntervalCfg thermal = {0x4000000000000002ULL, 10};
    StabilityIntervalCfg stability = {0x8000000000000004ULL, 20};
    table[10].expire = 99;
    configure_collector_table(table, power, thermal, stability);

    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(table[i].id, table[i].expire) << "row " << i;
        EXPECT_EQ(0u, table[i].flag) << "the power flag never reaches a row";
    }
    EXPECT_EQ(10, table[8].expire);
    EXPECT_EQ(0x4000000000000002u, table[8].flag);
    EXPECT_EQ(20, table[9].expire);
    EXPECT_EQ(0x8000000000000004u, table[9].flag);
    // The MTBF row carries the end id: the pass stops before it.
    EXPECT_EQ(99, table[10].expire);
    EXPECT_EQ(0u, table[10].flag);
}

TEST_F(CollectorTableTest, UnknownIdsAreSkippedAndIdTenChangesNothing) {
    table[2].id = 10;    // no such collector: accepted, nothing written
    table[3].id = 1001;  // not a row key: reported and left alone
    table[3].expire = 42;
    table[2].expire = 17;
    PowerIntervalCfg power = {0, 1, 1, 1, 1, 1, 1, 1, 1};
    configure_collector_table(table, power, {0, 1}, {0, 1});
    EXPECT_EQ(17, table[2].expire);
    EXPECT_EQ(42, table[3].expire);
    EXPECT_EQ(1, table[4].expire) << "the pass goes on after an unknown id";
    EXPECT_EQ(1, table[9].expire);
}

TEST_F(CollectorTableTest, NothingRunsBeforeAPeriodIsSetAndOffRowsKeepTheirCount) {
    tick(5);
    EXPECT_TRUE(gCalls.empty());
    table[0].count = 3;
    table[0].expire = 0;
    table[1].expire = -4;
    tick(2);
    EXPECT_TRUE(gCalls.empty());
    EXPECT_EQ(3, table[0].count);
}

TEST_F(CollectorTableTest, EveryLiveRowRunsInTableOrderAndTheEndRowNever) {
    for (auto& row : table) row.expire = 1;
    table[8].flag = 0x4000000000000000ULL;
    tick(2);
    std::vector<int> one = {2, 3, 4, 5, 6, 7, 8, 9, 1000, 2000};
    std::vector<int> two = one;
    two.insert(two.end(), one.begin(), one.end());
    EXPECT_EQ(two, ids());
    EXPECT_EQ(0x4000000000000000u, gCalls[8].second);
}

TEST_F(CollectorTableTest, PeriodNRunsOnEveryNthTick) {
    table[1].expire = 3;
    tick(2);
    EXPECT_TRUE(gCalls.empty());
    tick(1);
    EXPECT_EQ(1u, gCalls.size());
    tick(3);
    EXPECT_EQ(2u, gCalls.size());
    EXPECT_EQ(0, table[1].count);
}

TEST_F(CollectorTableTest, ShorterPeriodBelowTheCountRunsOnTheNextTick) {
    table[0].expire = 10;
    tick(7);
    ASSERT_EQ(7, table[0].count);
    PowerIntervalCfg power = {0, 0, 0, 5, 0, 0, 0, 0, 0};
    configure_collector_table(table, power, {0, 0}, {0, 0});
    EXPECT_EQ(7, table[0].count) << "the pass never touches counts";
    tick(1);
    EXPECT_EQ(1u, gCalls.size());
    tick(4);
    EXPECT_EQ(1u, gCalls.size());
    tick(1);
    EXPECT_EQ(2u, gCalls.size());
}

TEST_F(CollectorTableTest, LongerPeriodContinuesFromTheCount) {
    table[9].expire = 2;
    table[9].flag = 4;
    tick(1);
    table[9].expire = 4;
    tick(2);
    EXPECT_TRUE(gCalls.empty());
    tick(1);
    ASSERT_EQ(1u, gCalls.size());
    EXPECT_EQ(std::make_pair(2000, uint64_t{4}), gCalls[0]);
}

}  // namespace

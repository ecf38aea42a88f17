#include "mediautil/cache/object_map.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <vector>

namespace {

// Never looked at: only the addresses count.
MediaObj* object(std::uintptr_t number) { return reinterpret_cast<MediaObj*>(number); }

void insert(ObjectMap& map, unsigned long long id, MediaObj* value) { map.insert(map.begin(), {OsPathId(id), value}); }

TEST(ObjectMap, FindsWhatWasInsertedAndNothingElse) {
    ObjectMap map;
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.end(), map.find(OsPathId(1)));
    insert(map, 1, object(10));
    insert(map, 2, nullptr);
    EXPECT_EQ(2u, map.size());
    EXPECT_EQ(object(10), map.find(OsPathId(1))->second);
    EXPECT_EQ(nullptr, map.find(OsPathId(2))->second);
    EXPECT_EQ(map.end(), map.find(OsPathId(3)));
}

TEST(ObjectMap, TakesAnyIdForAKeyTheOneOfNoFileAmongThem) {
    ObjectMap map;
    for (const unsigned long long id : {0ull, ~0ull, 1ull << 63}) {
        EXPECT_EQ(map.end(), map.find(OsPathId(id)));
        insert(map, id, object(id + 1));
        EXPECT_EQ(object(id + 1), map.find(OsPathId(id))->second);
    }
    map.erase(map.find(OsPathId(0)));
    EXPECT_EQ(map.end(), map.find(OsPathId(0)));
}

TEST(ObjectMap, KeepsAnEntryThatIsInsertedAgain) {
    ObjectMap map;
    insert(map, 7, object(1));
    EXPECT_EQ(object(1), map.insert(map.begin(), {OsPathId(7), object(2)})->second);
    EXPECT_EQ(1u, map.size());
    map.find(OsPathId(7))->second = object(3);
    EXPECT_EQ(object(3), map.find(OsPathId(7))->second);
}

TEST(ObjectMap, GoesThroughItsEntriesInTheOrderOfTheIds) {
    ObjectMap map;
    for (const unsigned long long id : {50ull, 3ull, 900ull, 4ull})
        insert(map, id, nullptr);
    std::vector<unsigned long long> ids;
    for (const auto& [id, value] : map)
        ids.push_back(id.getId());
    EXPECT_EQ((std::vector<unsigned long long>{3, 4, 50, 900}), ids);
}

TEST(ObjectMap, HandsOutEachObjectOnceByTheBatchAndNoReservation) {
    for (const unsigned objects : {0u, 1u, 31u, 32u, 33u, 5000u}) {
        ObjectMap map;
        // So many reservations that whole batches hold nothing else.
        for (unsigned i = 0; i < 200; ++i)
            insert(map, 1000000 + i, nullptr);
        for (unsigned i = 1; i <= objects; ++i)
            insert(map, i, object(i));
        ASSERT_TRUE(map.hasBatches());
        std::vector<unsigned> seen(objects + 1);
        MediaObj* batch[ObjectMap::s_batch];
        std::size_t place = 0;
        while (const unsigned count = map.nextBatch(place, batch)) {
            ASSERT_LE(count, ObjectMap::s_batch);
            for (unsigned i = 0; i < count; ++i)
                ++seen.at(reinterpret_cast<std::uintptr_t>(batch[i]));
        }
        EXPECT_EQ(map.nextBatch(place, batch), 0u);
        seen[0] = 1;
        EXPECT_EQ(seen, std::vector<unsigned>(objects + 1, 1)) << objects;
    }
}

TEST(ObjectMap, HasNoBatchesBeforeItsFirstEntry) {
    const ObjectMap map;
    MediaObj* batch[ObjectMap::s_batch];
    std::size_t place = 0;
    EXPECT_FALSE(map.hasBatches());
    EXPECT_EQ(map.nextBatch(place, batch), 0u);
}

// Few different ids, so that most searches meet neighbours, and many, so that the index grows.
TEST(ObjectMap, AnswersAsATreeDoesWhateverIsInsertedAndErased) {
    for (const unsigned range : {40u, 3000u}) {
        std::mt19937 random(range);
        ObjectMap map;
        std::map<unsigned long long, MediaObj*> plain;
        for (unsigned step = 0; step < 50000; ++step) {
            const unsigned long long id = random() % range;
            if (random() % 2 == 0) {
                insert(map, id, object(step + 1));
                plain.insert({id, object(step + 1)});
            } else if (const auto entry = map.find(OsPathId(id)); entry != map.end()) {
                map.erase(entry);
                plain.erase(id);
            }
            const unsigned long long asked = random() % range;
            const auto found = map.find(OsPathId(asked));
            const auto expected = plain.find(asked);
            ASSERT_EQ(expected == plain.end(), found == map.end());
            if (expected != plain.end()) {
                ASSERT_EQ(expected->second, found->second);
            }
        }
        ASSERT_EQ(plain.size(), map.size());
        for (const auto& [id, value] : plain)
            ASSERT_EQ(value, map.find(OsPathId(id))->second);
    }
}

}  // namespace

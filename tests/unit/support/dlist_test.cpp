#include "support/dlist.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Item {
    explicit Item(char name) : m_name(name), m_node(*this) {}
    char m_name;
    DLinkNode<Item> m_node;
};

using List = DLinkedList<Item>;

// The names from the head on; the same from the last one back must be its mirror image.
std::string names(const List& list) {
    std::string forwards;
    std::string backwards;
    const DLinkNode<Item>* last = nullptr;
    for (const DLinkNode<Item>* node = list.getHead(); node; node = node->getNext()) {
        forwards += node->getClient()->m_name;
        last = node;
    }
    for (; last; last = last->getPrev())
        backwards.insert(backwards.begin(), last->getClient()->m_name);
    EXPECT_EQ(forwards, backwards);
    EXPECT_EQ(list.size(), forwards.size());
    return forwards;
}

class DLinkedListTest : public testing::Test {
protected:
    List m_list{"test", 1};
    Item a{'a'};
    Item b{'b'};
    Item c{'c'};
};

}  // namespace

TEST(DLinkNode, AppendPutsTheNodeBehindAndAnswersIt) {
    Item a('a'), b('b'), c('c');
    EXPECT_EQ(a.m_node.append(c.m_node), &c.m_node);
    EXPECT_EQ(a.m_node.append(b.m_node), &b.m_node);
    EXPECT_EQ(a.m_node.getNext(), &b.m_node);
    EXPECT_EQ(b.m_node.getNext(), &c.m_node);
    EXPECT_EQ(c.m_node.getPrev(), &b.m_node);
    EXPECT_EQ(b.m_node.getPrev(), &a.m_node);
    EXPECT_EQ(a.m_node.getPrev(), nullptr);
    EXPECT_EQ(c.m_node.getNext(), nullptr);
}

TEST(DLinkNode, InsertIsTheMirrorImageOfAppend) {
    Item a('a'), b('b'), c('c');
    EXPECT_EQ(c.m_node.insert(a.m_node), &a.m_node);
    EXPECT_EQ(c.m_node.insert(b.m_node), &b.m_node);
    EXPECT_EQ(a.m_node.getNext(), &b.m_node);
    EXPECT_EQ(b.m_node.getNext(), &c.m_node);
    EXPECT_EQ(c.m_node.getPrev(), &b.m_node);
    EXPECT_EQ(b.m_node.getPrev(), &a.m_node);
}

TEST(DLinkNode, IsolateJoinsTheNeighbours) {
    Item a('a'), b('b'), c('c');
    a.m_node.append(b.m_node);
    b.m_node.append(c.m_node);
    EXPECT_TRUE(b.m_node.isLinked());
    b.m_node.isolate();
    EXPECT_FALSE(b.m_node.isLinked());
    EXPECT_EQ(a.m_node.getNext(), &c.m_node);
    EXPECT_EQ(c.m_node.getPrev(), &a.m_node);
    c.m_node.isolate();
    EXPECT_FALSE(a.m_node.isLinked());
}

TEST(DLinkNode, MissingNeighbourHasNoClient) {
    Item a('a'), b('b');
    a.m_node.append(b.m_node);
    EXPECT_EQ(a.m_node.getNextClient(), &b);
    EXPECT_EQ(b.m_node.getPrevClient(), &a);
    EXPECT_EQ(b.m_node.getNextClient(), nullptr);
    EXPECT_EQ(a.m_node.getPrevClient(), nullptr);
    const DLinkNode<Item>& last = b.m_node;
    EXPECT_EQ(last.getNextClient(), nullptr);
}

TEST_F(DLinkedListTest, IsEmptyAtFirst) {
    EXPECT_EQ(m_list.size(), 0u);
    EXPECT_EQ(m_list.getHead(), nullptr);
    EXPECT_EQ(m_list.getHeadClient(), nullptr);
}

TEST_F(DLinkedListTest, PopOnAnEmptyListAnswersNull) {
    EXPECT_EQ(m_list.pop(), nullptr);
    EXPECT_EQ(m_list.popClient(), nullptr);
    EXPECT_EQ(m_list.size(), 0u);
}

TEST_F(DLinkedListTest, AppendAddsAtTheTailAndInsertAtTheHead) {
    m_list.append(b.m_node);
    m_list.append(c.m_node);
    m_list.insert(a.m_node);
    EXPECT_EQ(names(m_list), "abc");
    EXPECT_EQ(m_list.getHeadClient(), &a);
}

TEST_F(DLinkedListTest, InsertIntoAnEmptyListSetsTheTailToo) {
    m_list.insert(a.m_node);
    m_list.append(b.m_node);
    EXPECT_EQ(names(m_list), "ab");
}

TEST_F(DLinkedListTest, AppendAfterTheTailMovesTheTail) {
    m_list.append(a.m_node);
    m_list.append(b.m_node, a.m_node);
    m_list.append(c.m_node);
    EXPECT_EQ(names(m_list), "abc");
}

TEST_F(DLinkedListTest, AppendAfterAMiddleNodeKeepsTheTail) {
    m_list.append(a.m_node);
    m_list.append(c.m_node);
    m_list.append(b.m_node, a.m_node);
    Item d('d');
    m_list.append(d.m_node);
    EXPECT_EQ(names(m_list), "abcd");
    m_list.isolate(d.m_node);
}

TEST_F(DLinkedListTest, IsolatingTheOnlyElementEmptiesTheList) {
    m_list.append(a.m_node);
    m_list.isolate(a.m_node);
    EXPECT_EQ(m_list.size(), 0u);
    EXPECT_EQ(m_list.getHead(), nullptr);
    m_list.append(b.m_node);
    EXPECT_EQ(names(m_list), "b");
}

TEST_F(DLinkedListTest, IsolatingALoneNodeOfNoListLeavesTheSizeAlone) {
    m_list.append(a.m_node);
    m_list.isolate(b.m_node);
    EXPECT_EQ(names(m_list), "a");
}

TEST_F(DLinkedListTest, IsolateMovesHeadAndTail) {
    m_list.append(a.m_node);
    m_list.append(b.m_node);
    m_list.append(c.m_node);
    m_list.isolate(a.m_node);
    EXPECT_EQ(names(m_list), "bc");
    m_list.isolate(c.m_node);
    EXPECT_EQ(names(m_list), "b");
    m_list.append(c.m_node);
    m_list.insert(a.m_node);
    m_list.isolate(b.m_node);
    EXPECT_EQ(names(m_list), "ac");
    EXPECT_FALSE(b.m_node.isLinked());
}

TEST_F(DLinkedListTest, PopTakesTheElementsInOrder) {
    m_list.append(a.m_node);
    m_list.append(b.m_node);
    EXPECT_EQ(m_list.pop(), &a.m_node);
    EXPECT_EQ(m_list.popClient(), &b);
    EXPECT_EQ(m_list.popClient(), nullptr);
    EXPECT_EQ(m_list.size(), 0u);
}

TEST_F(DLinkedListTest, AddingAllocatesNothingInTheList) {
    static_assert(sizeof(DLinkedList<Item>) == 2 * sizeof(void*) + 8);
    static_assert(sizeof(DLinkNode<Item>) == 3 * sizeof(void*));
}

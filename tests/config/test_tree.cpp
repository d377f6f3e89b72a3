#include <gtest/gtest.h>

#include "DecodeHelpers.h"
#include "config/rap_entry.h"

namespace {

using T = rap_entry;

struct Tree {
  BisDLL dll;
  rap_entry root;
  int code;
  explicit Tree(Bytes const& b) { code = dll.dll_GetKaltor()->drp_Decode(b.data(), b.size(), &root); }
};

TEST(KaltorTree, LookupsInheritanceAndScopes) {
  std::vector<Item> items = {
      cls("CfgPatches", {cls("mine", {arr("units", {}), v_f("requiredVersion", 1.5f)})}),
      cls("Base", {v_i("x", 1), cls("Inner", {v_i("y", 2)})}),
      cls("Derived", {cls("Inner", {v_i("z", 3)}, "Inner")}, "Base"),
      cls("Loop1", {cls("In", {}, "Missing")}, "Loop2"),
      cls("Loop2", {}, "Loop1"),
      ext("Ext"),
      arr("a", {e_i(1), e_str("s"), e_arr({e_f(2.5f), e_arr({})}), e_i(4)}),
      cls("Base", {v_i("w", 4)}),  // a second body for Base merges into the first
  };
  for (int i = 0; i < 100; ++i) items.emplace_back(cls("C" + std::to_string(i), {v_i("v", i)}));
  items.emplace_back(cls("c50", {v_i("extra", 1)}));
  Tree t(arma(cls("", items)));
  ASSERT_EQ(t.code, 0);
  EXPECT_EQ(t.root.rpe_count_children(), 7u + 100);
  T* c50 = t.root.rpe_get_class("C50");
  EXPECT_EQ(c50->rpe_count_children(), 2u);
  EXPECT_EQ(c50->rpe_get_entry("v", T::RPE_INT)->rpe_get_int(), 50);
  T* mine = t.root.rpe_get_class("cfgpatches")->rpe_get_class("MINE");
  ASSERT_TRUE(mine);
  GenString path;
  EXPECT_STREQ(mine->rpe_whoami(path), "CfgPatches.mine");
  EXPECT_EQ(mine->rpe_get_entry("requiredversion", T::RPE_INT), nullptr);
  EXPECT_STREQ(mine->rpe_get_entry("REQUIREDVERSION", T::RPE_ANY)->value(), "1.5");
  T* e = t.root.rpe_get_array_contents("a");
  ASSERT_TRUE(e);
  EXPECT_EQ(e->rpe_get_next_sibling()->rpe_get_next_sibling()->rpe_count_children(), 2u);
  EXPECT_EQ(e->rpe_get_next()->rpe_get_int(), 4);  // the next int, past the string and the array

  T* base = t.root.rpe_get_class("Base");
  T* derived = t.root.rpe_get_class("Derived");
  EXPECT_EQ(base->rpe_count_children(), 3u);
  EXPECT_EQ(derived->rpe_find_inherited_class(), base);
  // "class Inner: Inner" inside Derived extends Base's Inner, not itself.
  EXPECT_EQ(derived->rpe_get_class("Inner")->rpe_find_inherited_class(), base->rpe_get_class("Inner"));
  EXPECT_EQ(base->rpe_find_inherited_class(), nullptr);
  // Classes that inherit from each other in a circle end the search.
  T* loop1 = t.root.rpe_get_class("Loop1");
  EXPECT_EQ(loop1->rpe_find_inherited_class(), t.root.rpe_get_class("Loop2"));
  EXPECT_EQ(loop1->rpe_get_class("In")->rpe_find_inherited_class(), nullptr);
  EXPECT_TRUE(mine->rpe_find_nearest_extern("ext"));
  EXPECT_EQ(mine->rpe_find_nearest_class("Base", 1), base);
  EXPECT_EQ(mine->rpe_find_nearest_class("Nowhere", 1), nullptr);
}

TEST(KaltorTree, OfpRootEntriesGoToTheRoot) {
  OfpWriter w;
  w.cls("", 2, "Top");
  w.v_str("mode", "ARCADE");
  w.cls("Inner", 1);
  w.v_str("mode", "mode");
  Tree t(w.b);
  ASSERT_EQ(t.code, 0);
  EXPECT_STREQ(t.root.value(), "Top");
  EXPECT_STREQ(t.root.rpe_get_entry("mode", T::RPE_STRING)->value(), "ARCADE");
  EXPECT_STREQ(t.root.rpe_get_class("Inner")->rpe_get_entry("mode", T::RPE_STRING)->value(), "mode");
}

TEST(KaltorTree, FreeingADeepTreeKeepsTheStack) {
  rap_entry root;
  rap_entry* n = &root;
  for (int i = 0; i < 200000; ++i) n = n->rpe_add_class("deep", nullptr);
  root.rpe_clear();
  EXPECT_EQ(root.rpe_count_children(), 0u);
}

}  // namespace

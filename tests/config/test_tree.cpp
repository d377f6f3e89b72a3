#include <gtest/gtest.h>

#include "DecodeHelpers.h"
#include "config/rap_entry.h"

namespace {

using T = rap_entry;

struct Tree {
  BisDLL dll;
  rap_entry root;
  int code;
  explicit Tree(Bytes const& b) {
    code = dll.dll_GetKaltor()->drp_Decode(b.data(), static_cast<unsigned long>(b.size()), &root);
  }
};

Bytes sample() {
  return arma(cls("", {
      cls("CfgPatches", {cls("mine", {arr("units", {}), v_f("requiredVersion", 1.5f)})}),
      cls("Base", {v_i("x", 1), cls("Inner", {v_i("y", 2)})}),
      cls("Derived", {cls("Inner", {v_i("z", 3)}, "Inner")}, "Base"),
      cls("Loop1", {cls("In", {}, "Missing")}, "Loop2"),
      cls("Loop2", {}, "Loop1"),
      ext("Ext"),
      del("Gone"),
      arr("a", {e_i(1), e_str("s"), e_arr({e_f(2.5f), e_arr({})}), e_i(4)}),
      arr("b", {e_l(7)}, true),
      cls("Base", {v_i("w", 4)}),  // a second body for Base merges into the first
  }));
}

TEST(KaltorTree, LookupsByNameAndType) {
  Tree t(sample());
  ASSERT_EQ(t.code, 0);
  T* patches = t.root.rpe_get_class("cfgpatches");
  ASSERT_TRUE(patches);
  EXPECT_EQ(t.root.rpe_get_class(nullptr), patches);
  EXPECT_EQ(t.root.rpe_get_class(""), patches);
  T* mine = patches->rpe_get_class("MINE");
  ASSERT_TRUE(mine);
  GenString path;
  EXPECT_STREQ(mine->rpe_whoami(path), "CfgPatches.mine");

  struct {
    char const* name;
    int type;
    bool found;
  } const lookups[] = {
      {"requiredVersion", T::RPE_FLOAT, true}, {"requiredversion", T::RPE_INT, false},
      {"REQUIREDVERSION", T::RPE_ANY, true},   {"units", T::RPE_ARRAY, true},
      {nullptr, T::RPE_ARRAY, true},           {"units", T::RPE_CLASS, false},
  };
  for (auto const& l : lookups) EXPECT_EQ(mine->rpe_get_entry(l.name, l.type) != nullptr, l.found) << l.name;
  T* rv = mine->rpe_get_entry("requiredVersion", T::RPE_FLOAT);
  EXPECT_EQ(rv->rpe_get_float(), 1.5f);
  EXPECT_STREQ(rv->value(), "1.5");

  T* e = t.root.rpe_get_array_contents("a");
  ASSERT_TRUE(e);
  EXPECT_EQ(e->rpe_GetType(), T::RPE_INT);
  EXPECT_EQ(e->rpe_get_int(), 1);
  T* s = e->rpe_get_next_sibling();
  EXPECT_STREQ(s->value(), "s");
  T* nested = s->rpe_get_next_sibling();
  ASSERT_EQ(nested->rpe_GetType(), T::RPE_ARRAY);
  EXPECT_EQ(nested->rpe_count_children(), 2u);
  EXPECT_EQ(e->rpe_get_next()->rpe_get_int(), 4);  // the next int, past the string and the array
  EXPECT_EQ(t.root.rpe_get_array("b")->rpe_GetType(), T::RPE_APPEND);
  EXPECT_EQ(t.root.rpe_get_entry("Gone", T::RPE_DELETE) != nullptr, true);

  T* base = t.root.rpe_get_class("Base");
  EXPECT_EQ(base->rpe_count_children(), 3u);
  EXPECT_TRUE(base->rpe_get_entry("w", T::RPE_INT));
  EXPECT_EQ(base->rpe_get_next(), t.root.rpe_get_class("Derived"));
}

TEST(KaltorTree, ScopeSearchAndInheritance) {
  Tree t(sample());
  ASSERT_EQ(t.code, 0);
  T* base = t.root.rpe_get_class("Base");
  T* derived = t.root.rpe_get_class("Derived");
  EXPECT_EQ(derived->rpe_find_inherited_class(), base);
  // "class Inner: Inner" inside Derived extends Base's Inner, not itself.
  EXPECT_EQ(derived->rpe_get_class("Inner")->rpe_find_inherited_class(), base->rpe_get_class("Inner"));
  EXPECT_EQ(base->rpe_find_inherited_class(), nullptr);

  // Classes that inherit from each other in a circle end the search.
  T* loop1 = t.root.rpe_get_class("Loop1");
  T* loop2 = t.root.rpe_get_class("Loop2");
  EXPECT_EQ(loop1->rpe_find_inherited_class(), loop2);
  EXPECT_EQ(loop2->rpe_find_inherited_class(), loop1);
  EXPECT_EQ(loop1->rpe_get_class("In")->rpe_find_inherited_class(), nullptr);

  T* mine = t.root.rpe_get_class("CfgPatches")->rpe_get_class("mine");
  EXPECT_TRUE(t.root.rpe_has_externs());
  EXPECT_TRUE(mine->rpe_find_nearest_extern("ext"));
  EXPECT_EQ(mine->rpe_find_nearest_class("Base", 1), base);
  EXPECT_EQ(mine->rpe_find_nearest_class("Nowhere", 1), nullptr);
}

TEST(KaltorTree, ManyClassesMergeByName) {
  std::vector<Item> items;
  for (int i = 0; i < 100; ++i) items.emplace_back(cls("C" + std::to_string(i), {v_i("v", i)}));
  items.emplace_back(cls("c50", {v_i("extra", 1)}));
  Tree t(arma(cls("", items)));
  ASSERT_EQ(t.code, 0);
  EXPECT_EQ(t.root.rpe_count_children(), 100u);
  T* c50 = t.root.rpe_get_class("C50");
  ASSERT_TRUE(c50);
  EXPECT_EQ(c50->rpe_count_children(), 2u);
  EXPECT_EQ(c50->rpe_get_entry("v", T::RPE_INT)->rpe_get_int(), 50);
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

TEST(KaltorTree, BuildersAndDeepTrees) {
  rap_entry root;
  rap_entry* c = root.rpe_add_class("A", "B");
  EXPECT_EQ(root.rpe_add_class("a", nullptr), c);
  EXPECT_STREQ(c->value(), "B");
  EXPECT_STREQ(c->rpe_add_int64("big", -5000000000LL)->value(), "-5000000000");
  EXPECT_STREQ(c->rpe_add_double("d", 2.0)->value(), "2.0");
  EXPECT_STREQ(c->rpe_add_float("f", 0.25f)->value(), "0.25");
  EXPECT_FALSE(root.rpe_has_externs());
  c->rpe_add_extern("E");
  EXPECT_TRUE(root.rpe_has_externs());
  // Freeing a very deep tree must not exhaust the stack.
  rap_entry* n = &root;
  for (int i = 0; i < 200000; ++i) n = n->rpe_add_class("deep", nullptr);
  root.rpe_clear();
  EXPECT_EQ(root.rpe_count_children(), 0u);
}

}  // namespace

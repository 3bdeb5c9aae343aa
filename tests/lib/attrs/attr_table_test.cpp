// Self-test of the attribute table and the attribute-name calls built on it.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "attrs/attr_table.h"
#include "core/text.h"
#include "velmor_c.h"

namespace vlm {
namespace {

TEST(AttrTableTest, NamesAreUniqueIgnoringCase) {
  std::set<std::string> seen;
  for (const AttrDef& a : attr_table()) {
    EXPECT_TRUE(seen.insert(to_lower(a.name)).second) << a.name;
  }
  EXPECT_GT(attr_table().size(), 150u);
}

TEST(AttrTableTest, InfoDescribesTypeKindAndSettability) {
  int type = -1, kind = -1, settable = -1;
  ASSERT_EQ(VLMgetattrinfo(nullptr, "objval", &type, &kind, &settable), VLM_OK);
  EXPECT_EQ(type, VLM_DBL);
  EXPECT_EQ(kind, VLM_KIND_MODEL);
  EXPECT_EQ(settable, 0);
  ASSERT_EQ(VLMgetattrinfo(nullptr, "UB", &type, &kind, &settable), VLM_OK);
  EXPECT_EQ(type, VLM_DBL);
  EXPECT_EQ(kind, VLM_KIND_VAR);
  EXPECT_EQ(settable, 1);
  ASSERT_EQ(VLMgetattrinfo(nullptr, "VType", &type, &kind, &settable), VLM_OK);
  EXPECT_EQ(type, VLM_CHAR);
  ASSERT_EQ(VLMgetattrinfo(nullptr, "Sense", &type, &kind, nullptr), VLM_OK);
  EXPECT_EQ(kind, VLM_KIND_CONSTR);
  ASSERT_EQ(VLMgetattrinfo(nullptr, "ModelName", &type, nullptr, &settable), VLM_OK);
  EXPECT_EQ(type, VLM_STR);
  EXPECT_EQ(settable, 1);
  EXPECT_EQ(VLMgetattrinfo(nullptr, "NoSuchAttr", &type, &kind, &settable),
            VLM_ERROR_UNKNOWN_ATTRIBUTE);
}

TEST(AttrTableTest, WalkByIndexCoversTheTable) {
  int n = VLMgetnumattributes(nullptr);
  ASSERT_EQ(n, static_cast<int>(attr_table().size()));
  char* name = nullptr;
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(VLMgetattrname(nullptr, i, &name), VLM_OK);
    EXPECT_EQ(find_attr(name), i);
  }
  EXPECT_EQ(VLMgetattrname(nullptr, n, &name), VLM_ERROR_INDEX_OUT_OF_RANGE);
  EXPECT_EQ(VLMgetattrname(nullptr, 0, nullptr), VLM_ERROR_NULL_ARGUMENT);
}

}  // namespace
}  // namespace vlm

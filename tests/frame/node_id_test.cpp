#include <gtest/gtest.h>
#include <qovpub/qov_utility.h>

#include <cstdlib>

// The stand-in of the gate refuses any request but the one the platform takes, so that these tests
// also hold the layout of the request.

TEST(NodeId, ComesFromThePlatform) {
  ::setenv("PXOS_NODE_ID", "4097", 1);
  u_short nodeId = 1;
  EXPECT_EQ(QOV_Utility::GetNodeIdLocal(nodeId), 0);
  EXPECT_EQ(nodeId, 4097);
}

TEST(NodeId, IsLeftAloneWhenThePlatformFails) {
  ::setenv("PXOS_NODE_ID", "70000", 1);
  u_short nodeId = 77;
  EXPECT_EQ(QOV_Utility::GetNodeIdLocal(nodeId), -1);
  EXPECT_EQ(nodeId, 77);
}

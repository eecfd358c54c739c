// What a router promises when no memory is to be had.
#include <gtest/gtest.h>

#include <string>

#include "host/transport/Router.h"
#include "tests/support/memory/MemoryLimit.h"
#include "tests/unit/host/transport/RouterParts.h"

using RouterMemoryTest = RouterTest;

TEST_F(RouterMemoryTest, ASendIsRefusedOrCompletedWhicheverPieceIsMissing) {
    const std::string strBody(100, 'x');  // more than a string holds in itself
    const auto send = [&] {
        return m_router.SendWithCompletion(&CLOUD, 20300, strBody.data(), 100, &m_completion, 0,
                                           nullptr, 60000);
    };
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, send());  // makes what lives on

    int nTaken = 1;
    int nTakenWithout = 0;  // although a piece was missing
    int nRefusedSends = 0;
    long nRefused = 1;
    for (long nPiece = 0; nRefused > 0; ++nPiece) {
        uint32_t nResult = 0;
        {
            const MemoryLimit limit(PieceNumber{nPiece});
            nResult = send();
            nRefused = limit.Refused();
        }
        nTaken += nResult == 0 ? 1 : 0;
        nTakenWithout += nResult == 0 && nRefused > 0 ? 1 : 0;
        nRefusedSends += nResult != 0 ? 1 : 0;
        EXPECT_TRUE(Eventually([&] { return m_router.Pending() == 0; }));
    }
    m_router.Close();

    EXPECT_EQ(nTaken, m_completion.m_nCalls);
    EXPECT_LT(0, nRefusedSends);
    EXPECT_LT(0, nTakenWithout);  // the deadline has no piece: the send goes on without
}

#include "frameloom/HttpTransfer.h"

#include "TestHttpServer.h"

#include <gtest/gtest.h>

namespace frameloom {
namespace {

class HttpTransferTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() { server = new testing::TestHttpServer(); }
  static void TearDownTestSuite() {
    delete server;
    server = nullptr;
  }

  static CURLcode failure(const std::string& url, TransferLimits limits = {}) {
    try {
      HttpTransfer(limits).get(url);
    } catch (const TransferError& error) {
      return error.code();
    }
    return CURLE_OK;
  }

  static inline testing::TestHttpServer* server = nullptr;
};

TEST_F(HttpTransferTest, ReturnsStatusAndBodyWithoutJudgingThem) {
  HttpTransfer transfer{TransferLimits{}};
  HttpResponse response = transfer.get(server->url("/bytes/300"));
  EXPECT_EQ(response.statusCode, 200);
  ASSERT_EQ(response.body.size(), 300u);
  EXPECT_EQ(response.body[299], 299 % 256);

  // The handle is reused for a second transfer.
  EXPECT_EQ(transfer.get(server->url("/status/206")).statusCode, 206);
  EXPECT_EQ(transfer.get(server->url("/status/404")).body.size(), 10u);
}

TEST_F(HttpTransferTest, FollowsAtMostTenRedirectsOverHttpOnly) {
  HttpResponse response = HttpTransfer(TransferLimits{}).get(server->url("/redirect/10"));
  EXPECT_EQ(response.statusCode, 200);
  EXPECT_EQ(response.body.size(), 64u);

  EXPECT_EQ(failure(server->url("/redirect/11")), CURLE_TOO_MANY_REDIRECTS);
  EXPECT_EQ(failure(server->url("/redirect-to?file:///etc/hostname")), CURLE_UNSUPPORTED_PROTOCOL);
  EXPECT_EQ(failure("file:///etc/hostname"), CURLE_UNSUPPORTED_PROTOCOL);
  EXPECT_EQ(failure("ftp://127.0.0.1/"), CURLE_UNSUPPORTED_PROTOCOL);
}

TEST_F(HttpTransferTest, BrokenAnswersAndOversizedBodiesFail) {
  EXPECT_EQ(failure(server->url("/drop")), CURLE_PARTIAL_FILE);
  EXPECT_NE(failure(server->url("/garbage")), CURLE_OK);
  EXPECT_EQ(failure(server->url("/slow"), {.stallTimeout = std::chrono::milliseconds(500)}),
            CURLE_OPERATION_TIMEDOUT);
  EXPECT_NE(failure(server->url("/bytes/2000"), {.maxBodySize = 1000}), CURLE_OK);
  EXPECT_EQ(failure("http://127.0.0.1:1/"), CURLE_COULDNT_CONNECT);
}

} // namespace
} // namespace frameloom

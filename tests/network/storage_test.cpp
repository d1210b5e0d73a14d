// Uploads to and deletes from the picture storage service through
// CNetworkCfg, against a real S3-compatible peer that checks signatures.
// Lumen is bound to 127.0.0.2 through the adapter seam (the adapter scan
// leaves 127.0.0.1 out), and the peer listens there.
#include <oxconfigmgr/OxConfigMgr.h>

#include <atomic>
#include <cstring>
#include <regex>
#include <thread>
#include <string>
#include <vector>

#include "network/storage_config.h"
#include "platform/lss_client.h"
#include "support/network_support.h"
#include "support/s3_peer.h"

namespace {

using OxConfigMgr::CNetworkCfg;
using s3test::JournalEntry;

constexpr char kFacePath[] = "/QAPI/Intelligent/FDLib/pictureUpload";
constexpr char kEmptySha256[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::string picture(size_t size, unsigned seed = 1) {
  std::string out(size, '\0');
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 131 + seed * 7 + (i >> 8)) & 0xFF);
  return out;
}

class StorageTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    const std::string why = s3test::S3Peer::unavailableReason();
    ASSERT_EQ(why, "");
    oxtest::copyFactory(dir());
    port_ = s3test::freePort("127.0.0.2");
    ASSERT_NE(port_, 0);
    std::string text = config();
    const std::string from = "<Upload>\n\t\t\t\t<Port>6011</Port>";
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos);
    text.replace(at, from.size(), "<Upload>\n\t\t\t\t<Port>" + std::to_string(port_) + "</Port>");
    oxtest::writeFile(path("Config.xml"), text);
    origin_ = "http://127.0.0.2:" + std::to_string(port_);
  }

  // Starts the library with these adapters (the factory table binds every
  // protocol to the lowest address text) and fetches this start's keys.
  void startLibrary(std::vector<std::string> addresses = {"127.0.0.2"}) {
    env_.setAdapters({nettest::adapter("lo", std::move(addresses))});
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
    net_ = OX_ConfigMgr_GetNetworkCfg();
    ASSERT_TRUE(net_);
    ASSERT_TRUE(OX_ConfigMgr_GetStorageConfig());
    OX_ConfigMgr_GetStorageConfig()->getStorageAkSk(ak_, sk_);
  }
  void startPeer(const std::string& secret) {
    std::string error;
    ASSERT_TRUE(peer_.start("127.0.0.2", port_, ak_, secret, path("peer"), &error)) << error;
  }
  void startAll(std::vector<std::string> addresses = {"127.0.0.2"}) {
    startLibrary(std::move(addresses));
    startPeer(sk_);
  }

  // Uploads and checks the answer's form; returns the address ("" on failure).
  std::string upload(const std::string& data, const std::string& requestPath, const std::string& pool) {
    int error = 0;
    std::string url;
    if (!net_->uploadFacetoPss(error, url, data, requestPath)) {
      ADD_FAILURE() << "upload failed with " << error;
      return "";
    }
    EXPECT_TRUE(std::regex_match(url, std::regex(origin_ + "/pss/" + pool + "/[0-9a-f]{32}/123\\.jpg"))) << url;
    return url;
  }
  s3test::HttpAnswer get(const std::string& url) { return s3test::SignedHttp(ak_, sk_).request("GET", url); }
  size_t requests() const { return peer_.journal().size(); }

  uint16_t port_ = 0;
  std::string origin_;
  std::shared_ptr<CNetworkCfg> net_;
  std::string ak_, sk_;
  s3test::S3Peer peer_;
};

TEST(StorageUrlTest, ThePoolFollowsTheRequestPathWithoutItsQuery) {
  EXPECT_TRUE(OxConfigMgr::cmpURL(kFacePath, kFacePath));
  EXPECT_TRUE(OxConfigMgr::cmpURL(std::string(kFacePath) + "?format=json&a=b", kFacePath));
  EXPECT_TRUE(OxConfigMgr::cmpURL(std::string(kFacePath) + "?", kFacePath));
  EXPECT_FALSE(OxConfigMgr::cmpURL(std::string(kFacePath) + "/", kFacePath));
  EXPECT_FALSE(OxConfigMgr::cmpURL("/qapi/Intelligent/FDLib/pictureUpload", kFacePath));
  EXPECT_FALSE(OxConfigMgr::cmpURL("?" + std::string(kFacePath), kFacePath));
  EXPECT_FALSE(OxConfigMgr::cmpURL("", kFacePath));
  EXPECT_FALSE(OxConfigMgr::cmpURL(kFacePath, nullptr));
}

TEST_F(StorageTest, UploadsLandInThePoolOfTheirRequestPathAndReadBackTheSame) {
  startAll();
  oxtest::LogCapture log;
  const struct {
    std::string requestPath;
    std::string pool;
  } cases[] = {
      {kFacePath, "1"},
      {std::string(kFacePath) + "?format=json&FDID=1", "1"},
      {"/QAPI/AccessControl/UserInfo/SetUp", "DeviceGatewayAcsModel"},
      {std::string(kFacePath) + "Other", "DeviceGatewayAcsModel"},
      {"", "DeviceGatewayAcsModel"},
  };
  unsigned seed = 0;
  for (const auto& c : cases) {
    const std::string data = picture(50 * 1024, ++seed);
    const size_t before = requests();
    const std::string url = upload(data, c.requestPath, c.pool);
    ASSERT_FALSE(url.empty()) << c.requestPath;

    // Exactly one signed PUT, with the body's digest and the picture type.
    const std::vector<JournalEntry> journal = peer_.journal();
    ASSERT_EQ(journal.size(), before + 1);
    const JournalEntry& put = journal.back();
    EXPECT_EQ(put.method, "PUT");
    EXPECT_EQ(origin_ + put.url, url);
    EXPECT_TRUE(put.signed_);
    EXPECT_EQ(put.sha256, s3test::sha256Hex(data));
    EXPECT_EQ(put.contentType, "image/jpeg");
    EXPECT_EQ(put.length, static_cast<long>(data.size()));
    EXPECT_EQ(put.status, 200);
    EXPECT_TRUE(log.has(2, "NET_LSS_ClientDoUploadBuffer success: 0, " + url + ", 51200"));

    const s3test::HttpAnswer back = get(url);
    EXPECT_EQ(back.status, 200);
    EXPECT_TRUE(back.body == data) << c.requestPath;
  }
  // One client for all of them, made by the first upload, on one connection.
  const std::vector<JournalEntry> all = peer_.journal();
  for (const JournalEntry& e : all) {
    if (e.method == "PUT") {
      EXPECT_EQ(e.remotePort, all[0].remotePort);
    }
  }
  EXPECT_TRUE(log.has(2, "NET_LSS_CreateClient succ: 0"));
  EXPECT_TRUE(log.has(2, "upload ip:port [127.0.0.2:" + std::to_string(port_) + "]"));
  size_t created = 0;
  for (const auto& e : log.entries()) created += e.text.find("NET_LSS_CreateClient succ") != std::string::npos;
  EXPECT_EQ(created, 1u);
}

TEST_F(StorageTest, ADeleteRemovesThePictureAndIsSigned) {
  startAll();
  oxtest::LogCapture log;
  const std::string url = upload(picture(1000), kFacePath, "1");
  ASSERT_FALSE(url.empty());
  ASSERT_TRUE(net_->deleteFacefromPss(url));
  EXPECT_TRUE(log.has(2, "NET_LSS_ClientDoDelete success: 0, " + url));
  EXPECT_EQ(get(url).status, 404);

  const JournalEntry del = peer_.journal()[1];
  EXPECT_EQ(del.method, "DELETE");
  EXPECT_EQ(origin_ + del.url, url);
  EXPECT_TRUE(del.signed_);
  EXPECT_EQ(del.sha256, kEmptySha256);
  EXPECT_EQ(del.status, 204);
  // A picture that is gone counts as deleted.
  EXPECT_TRUE(net_->deleteFacefromPss(url));
}

TEST_F(StorageTest, WrongCredentialsAreRefusedAndTheClientIsMadeAgainAfterwards) {
  startLibrary();
  startPeer(sk_ + "0");  // the store knows another secret
  oxtest::LogCapture log;
  int error = 0;
  std::string url = "untouched";
  EXPECT_FALSE(net_->uploadFacetoPss(error, url, picture(2048), kFacePath));
  EXPECT_EQ(error, 403);
  EXPECT_EQ(url, "untouched");
  EXPECT_TRUE(log.has(5, "NET_LSS_ClientDoUploadBuffer error: 403 [2048]"));
  EXPECT_FALSE(net_->deleteFacefromPss(origin_ + "/pss/1/x/123.jpg"));
  EXPECT_TRUE(log.has(5, "NET_LSS_ClientDoDelete error: 403, " + origin_ + "/pss/1/x/123.jpg"));

  // The store learns the right keys; the next upload makes a new client.
  peer_.stop();
  startPeer(sk_);
  EXPECT_FALSE(upload(picture(2048), kFacePath, "1").empty());
  EXPECT_TRUE(log.has(2, "NET_LSS_CreateClient succ: 0"));
  EXPECT_TRUE(log.has(2, "NET_LSS_CreateClient succ: 1"));
  EXPECT_TRUE(log.has(2, "NET_LSS_CreateClient succ: 2"));
}

TEST_F(StorageTest, AStoreThatIsDownFailsWithANegativeError) {
  startLibrary();  // no peer
  oxtest::LogCapture log;
  int error = 0;
  std::string url;
  EXPECT_FALSE(net_->uploadFacetoPss(error, url, picture(100), kFacePath));
  EXPECT_EQ(error, NET_LSS_ERR_CONNECT);
  EXPECT_TRUE(log.has(5, "NET_LSS_ClientDoUploadBuffer error: " + std::to_string(NET_LSS_ERR_CONNECT) + " [100]"));
  EXPECT_FALSE(net_->deleteFacefromPss(origin_ + "/pss/1/x/123.jpg"));
}

TEST_F(StorageTest, ForeignAddressesAreRefusedWithoutAnyRequest) {
  startAll();
  // Listeners on the hosts a wrong check would reach, with the same port.
  s3test::RawServer onLocalhost("127.0.0.1", port_, s3test::RawServer::kOk);
  s3test::RawServer onOther("127.0.0.3", port_, s3test::RawServer::kOk);
  const std::string port = std::to_string(port_);
  const std::string urls[] = {
      "https://127.0.0.2:" + port + "/pss/1/x/123.jpg",
      "http://localhost:" + port + "/pss/1/x/123.jpg",
      "http://127.0.0.1:" + port + "/pss/1/x/123.jpg",
      "http://127.0.0.2:" + port + "1/pss/1/x/123.jpg",
      "http://127.0.0.2:" + port + "@127.0.0.3:" + port + "/pss/1/x/123.jpg",
      "http://127.0.0.3:" + port + "/pss/1/x/123.jpg",
      origin_ + "/pss/1/x/123.jpg\r\nX-Injected: 1",
      origin_ + "/pss/../pss",
      origin_ + "/pss",
      "",
  };
  oxtest::LogCapture log;
  for (const auto& url : urls) {
    EXPECT_FALSE(net_->deleteFacefromPss(url)) << url;
    EXPECT_TRUE(log.has(5, "NET_LSS_ClientDoDelete error: " + std::to_string(NET_LSS_ERR_FOREIGN_URL) + ", " + url))
        << url;
  }
  EXPECT_EQ(requests(), 0u);
  EXPECT_EQ(onLocalhost.connections(), 0);
  EXPECT_EQ(onOther.connections(), 0);
  // Each refusal dropped the client: one was made per call.
  size_t created = 0;
  for (const auto& e : log.entries()) created += e.text.find("NET_LSS_CreateClient succ") != std::string::npos;
  EXPECT_EQ(created, sizeof urls / sizeof urls[0]);
}

TEST_F(StorageTest, TheStoreIsReachedOnTheLumenAddressNotOnEntryZero) {
  // "127.0.0.10" sorts before "127.0.0.2": it is entry 0 and gets every
  // protocol first; nothing listens there.
  startAll({"127.0.0.2", "127.0.0.10"});
  ASSERT_EQ(net_->getGatewayInterIP(), "127.0.0.10");
  ASSERT_EQ(net_->setProtocolBindIPv4(OxConfigMgr::PROTOCOL_LUMEN, "127.0.0.2"), 0);
  oxtest::LogCapture log;
  EXPECT_FALSE(upload(picture(300), "/x", "DeviceGatewayAcsModel").empty());
  EXPECT_TRUE(log.has(2, "upload ip:port [127.0.0.2:" + std::to_string(port_) + "]"));

  // The cached client stays on its address after Lumen moves, until a
  // failure drops it; the next client is made for the new address.
  ASSERT_EQ(net_->setProtocolBindIPv4(OxConfigMgr::PROTOCOL_LUMEN, "127.0.0.10"), 0);
  EXPECT_FALSE(upload(picture(300), "/x", "DeviceGatewayAcsModel").empty());
  peer_.stop();
  int error = 0;
  std::string url;
  EXPECT_FALSE(net_->uploadFacetoPss(error, url, picture(300), "/x"));
  EXPECT_FALSE(net_->uploadFacetoPss(error, url, picture(300), "/x"));
  EXPECT_TRUE(log.has(2, "upload ip:port [127.0.0.10:" + std::to_string(port_) + "]"));
  EXPECT_TRUE(log.has(2, "NET_LSS_CreateClient succ: 1"));
}

TEST_F(StorageTest, WithoutALumenBindingEntryZeroIsUsed) {
  startAll({"127.0.0.2", "127.0.0.30"});
  ASSERT_EQ(net_->getGatewayInterIP(), "127.0.0.2");
  ASSERT_EQ(net_->setProtocolBindIPv4(OxConfigMgr::PROTOCOL_LUMEN, ""), 0);
  _NIC_INFO_V4 lumen{};
  ASSERT_EQ(net_->getIPv4ByProtocol(lumen, OxConfigMgr::PROTOCOL_LUMEN), 0);
  ASSERT_EQ(lumen.protocolMask & OxConfigMgr::PROTOCOL_LUMEN, 0u);
  EXPECT_FALSE(upload(picture(300), kFacePath, "1").empty());
}

TEST_F(StorageTest, EmptyAndLargePicturesAndOddRequestPaths) {
  startAll();
  oxtest::LogCapture log;
  int error = 0;
  std::string url = "untouched";
  EXPECT_FALSE(net_->uploadFacetoPss(error, url, "", kFacePath));
  EXPECT_EQ(error, NET_LSS_ERR_BAD_PARAM);
  EXPECT_EQ(url, "untouched");
  EXPECT_TRUE(log.has(5, "NET_LSS_ClientDoUploadBuffer error: -2 [0]"));
  EXPECT_EQ(requests(), 0u);

  const std::string big = picture(16 * 1024 * 1024, 9);
  const std::string bigUrl = upload(big, kFacePath, "1");
  ASSERT_FALSE(bigUrl.empty());
  EXPECT_EQ(s3test::sha256Hex(get(bigUrl).body), s3test::sha256Hex(big));

  std::string odd(1 << 20, 'a');
  for (size_t i = 0; i < odd.size(); i += 7) odd[i] = static_cast<char>(i & 0xFF);
  EXPECT_FALSE(upload(picture(10), odd, "DeviceGatewayAcsModel").empty());
  EXPECT_FALSE(upload(picture(10), std::string(kFacePath) + "?" + odd, "1").empty());

  const std::string longUrl = origin_ + "/pss/" + std::string(1 << 20, 'k');
  EXPECT_FALSE(net_->deleteFacefromPss(longUrl));
}

TEST_F(StorageTest, ConcurrentCallsShareOneClientOneAtATime) {
  startAll();
  oxtest::LogCapture log;
  std::atomic<int> stored{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 5; ++i) {
        int error = 0;
        std::string url;
        if (net_->uploadFacetoPss(error, url, picture(4096, static_cast<unsigned>(t * 10 + i)), kFacePath) &&
            net_->deleteFacefromPss(url)) {
          ++stored;
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(stored.load(), 20);
  size_t created = 0;
  for (const auto& e : log.entries()) created += e.text.find("NET_LSS_CreateClient succ") != std::string::npos;
  EXPECT_EQ(created, 1u);
  EXPECT_EQ(requests(), 40u);
}

TEST_F(StorageTest, TheCachedClientIsDestroyedWithItsObject) {
  startAll();
  oxtest::LogCapture log;
  {
    CNetworkCfg other;
    ASSERT_TRUE(other.start());
    int error = 0;
    std::string url;
    ASSERT_TRUE(other.uploadFacetoPss(error, url, picture(10), kFacePath));
    EXPECT_FALSE(log.contains("NET_LSS_DestroyClient"));
  }
  EXPECT_TRUE(log.has(2, "NET_LSS_DestroyClient success: 0"));
}

TEST_F(StorageTest, TheKeysNeverReachTheLog) {
  startAll();
  oxtest::LogCapture log;
  const std::string url = upload(picture(100), kFacePath, "1");
  net_->deleteFacefromPss(url);
  peer_.stop();
  net_->deleteFacefromPss(url);
  ASSERT_FALSE(log.entries().empty());
  for (const auto& e : log.entries()) {
    EXPECT_EQ(e.text.find(ak_), std::string::npos) << e.text;
    EXPECT_EQ(e.text.find(sk_), std::string::npos) << e.text;
  }
}

}  // namespace

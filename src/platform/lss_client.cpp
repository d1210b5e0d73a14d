#include "platform/lss_client.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/crypto_util.h"
#include "platform/env.h"
#include "platform/hex.h"
#include "platform/secure_wipe.h"

namespace {

constexpr long kConnectTimeoutMs = 3000;
constexpr long kRequestTimeoutMs = 10000;
constexpr size_t kMaxUrlLength = 8192;
constexpr size_t kMaxParamLength = 1024;
constexpr const char kBucketPath[] = "/pss/";

thread_local int t_lastError = 0;

int succeed() {
  t_lastError = 0;
  return 0;
}

int fail(int error) {
  t_lastError = error;
  return -1;
}

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

// Characters a path segment may carry unescaped besides the unreserved ones.
bool isSubDelimOrColonAt(unsigned char c) { return c != 0 && std::strchr("!$&'()*+,;=:@", c) != nullptr; }

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The spelling the store signs: everything but the unreserved characters
// escaped, upper-case hexadecimal.
void appendEncoded(std::string& out, const std::string& segment) {
  static const char kHex[] = "0123456789ABCDEF";
  for (unsigned char c : segment) {
    if (isUnreserved(c)) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0x0F];
    }
  }
}

bool isDotSegment(const std::string& s) { return s == "." || s == ".."; }

// A parameter naming path segments ("Pool-Id", "File-Path"): segments
// separated by "/", none empty or a dot segment, no control characters.
bool validSegments(const std::string& value) {
  if (value.empty() || value.size() > kMaxParamLength) return false;
  size_t begin = 0;
  while (true) {
    const size_t end = value.find('/', begin);
    const std::string seg = value.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
    if (seg.empty() || isDotSegment(seg)) return false;
    for (unsigned char c : seg) {
      if (c < 0x20 || c == 0x7F) return false;
    }
    if (end == std::string::npos) return true;
    begin = end + 1;
  }
}

std::string encodeSegments(const std::string& value) {
  std::string out;
  size_t begin = 0;
  while (true) {
    const size_t end = value.find('/', begin);
    appendEncoded(out, value.substr(begin, end == std::string::npos ? std::string::npos : end - begin));
    if (end == std::string::npos) return out;
    out += '/';
    begin = end + 1;
  }
}

size_t discardBody(char*, size_t size, size_t count, void*) { return size * count; }

void initCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Client {
  std::mutex mutex;  // one request at a time on the easy handle
  std::string origin;  // "http://<ip>:<port>"
  CURL* curl = nullptr;
  std::string poolId;
  std::string filePath;
  std::string accessKey;
  std::string secretKey;

  ~Client() {
    OxBase::SecureWipe(accessKey);
    OxBase::SecureWipe(secretKey);
    if (curl) curl_easy_cleanup(curl);
  }
};

// Handles to clients. Never destroyed: hosts may destroy clients from
// static destructors, after this table would otherwise be gone.
class Registry {
 public:
  static Registry& instance() {
    static Registry* registry = new Registry;
    return *registry;
  }

  int add(std::shared_ptr<Client> client) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (int tries = 0; tries < 1024; ++tries) {
      const int handle = next_;
      next_ = next_ == INT_MAX ? 0 : next_ + 1;
      if (clients_.emplace(handle, client).second) return handle;
    }
    return -1;
  }

  std::shared_ptr<Client> find(int handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = clients_.find(handle);
    return it == clients_.end() ? nullptr : it->second;
  }

  // The client leaves the table at once; it is destroyed when the last
  // request running on it has finished.
  bool remove(int handle) {
    std::shared_ptr<Client> gone;
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = clients_.find(handle);
    if (it == clients_.end()) return false;
    gone = std::move(it->second);
    clients_.erase(it);
    return true;
  }

 private:
  std::mutex mutex_;
  std::map<int, std::shared_ptr<Client>> clients_;
  int next_ = 0;
};

int errorOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_HOST:
      return NET_LSS_ERR_CONNECT;
    case CURLE_OPERATION_TIMEDOUT:
      return NET_LSS_ERR_TIMEOUT;
    case CURLE_OUT_OF_MEMORY:
    case CURLE_FAILED_INIT:
      return NET_LSS_ERR_NO_RESOURCES;
    default:
      return NET_LSS_ERR_TRANSPORT;
  }
}

// Sends one signed request on the client's easy handle (PUT with `body`, or
// DELETE without one) and returns 0 for a 2xx answer, else -1 with the error
// set. The client's mutex is held by the caller.
int perform(Client& c, bool put, const std::string& url, const char* body, size_t length) {
  unsigned char digest[OxBase::kSha256Bytes];
  if (!OxBase::Sha256(put ? body : "", put ? length : 0, digest)) return fail(NET_LSS_ERR_DIGEST);
  char digestHex[2 * OxBase::kSha256Bytes + 1];
  convertByteArrayToCharArray(digest, sizeof digest, digestHex, sizeof digestHex);

  // Every header carries a value: libcurl signs an empty one and then leaves
  // it out, which breaks the signature.
  curl_slist* headers = nullptr;
  const std::string sha = std::string("x-amz-content-sha256: ") + digestHex;
  curl_slist* grown = curl_slist_append(headers, sha.c_str());
  if (grown) headers = grown;
  if (grown && put) {
    grown = curl_slist_append(headers, "Content-Type: image/jpeg");
    if (grown) headers = grown;
  }
  if (!grown) {
    curl_slist_free_all(headers);
    return fail(NET_LSS_ERR_NO_RESOURCES);
  }

  CURL* h = c.curl;
  bool set = curl_easy_setopt(h, CURLOPT_URL, url.c_str()) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http") == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_NOPROXY, "*") == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, kConnectTimeoutMs) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, kRequestTimeoutMs) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_AWS_SIGV4, "aws:amz:us-east-1:s3") == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_USERNAME, c.accessKey.c_str()) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_PASSWORD, c.secretKey.c_str()) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers) == CURLE_OK;
  set = set && curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, discardBody) == CURLE_OK;
  if (put) {
    // The body is given as post fields so that the signer hashes it; the
    // method is PUT all the same.
    set = set && curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length)) == CURLE_OK;
    set = set && curl_easy_setopt(h, CURLOPT_POSTFIELDS, body) == CURLE_OK;
    set = set && curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, "PUT") == CURLE_OK;
  } else {
    set = set && curl_easy_setopt(h, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr)) == CURLE_OK;
    set = set && curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1)) == CURLE_OK;
    set = set && curl_easy_setopt(h, CURLOPT_HTTPGET, 1L) == CURLE_OK;
    set = set && curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, "DELETE") == CURLE_OK;
  }

  int result = -1;
  if (!set) {
    result = fail(NET_LSS_ERR_NO_RESOURCES);
  } else {
    const CURLcode code = curl_easy_perform(h);
    long status = 0;
    if (code != CURLE_OK) {
      result = fail(errorOf(code));
    } else if (curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status <= 0) {
      result = fail(NET_LSS_ERR_TRANSPORT);
    } else if (status < 200 || status > 299) {
      result = fail(static_cast<int>(status));
    } else {
      result = succeed();
    }
  }
  // Nothing of this request may outlive it on the reused handle: the body
  // belongs to the caller, the header list is freed here.
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  curl_easy_setopt(h, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
  curl_slist_free_all(headers);
  return result;
}

}  // namespace

namespace OxBase {

bool LssObjectPath(const std::string& origin, const char* url, std::string* path) {
  if (!url || !path) return false;
  const size_t length = strnlen(url, kMaxUrlLength + 1);
  if (length > kMaxUrlLength) return false;
  const std::string prefix = origin + kBucketPath;
  if (length <= prefix.size() || std::strncmp(url, prefix.c_str(), prefix.size()) != 0) return false;

  std::string out = kBucketPath;
  std::string segment;
  for (size_t i = prefix.size();; ++i) {
    const unsigned char c = static_cast<unsigned char>(i < length ? url[i] : '/');
    if (c == '/' ) {
      if (segment.empty() || isDotSegment(segment)) return false;
      appendEncoded(out, segment);
      segment.clear();
      if (i >= length) break;
      out += '/';
    } else if (c == '%') {
      const int hi = i + 2 < length ? hexValue(static_cast<unsigned char>(url[i + 1])) : -1;
      const int lo = hi >= 0 ? hexValue(static_cast<unsigned char>(url[i + 2])) : -1;
      if (lo < 0) return false;
      const int decoded = hi * 16 + lo;
      // A decoded separator or control character would name another object
      // than the one the text shows.
      if (decoded < 0x20 || decoded == 0x7F || decoded == '/') return false;
      segment += static_cast<char>(decoded);
      i += 2;
    } else if (isUnreserved(c) || isSubDelimOrColonAt(c)) {
      segment += static_cast<char>(c);
    } else {
      return false;
    }
  }
  // Encoding lengthens the text: the address actually requested must keep
  // to the same limit, or it would be one this function itself refuses.
  if (origin.size() + out.size() > kMaxUrlLength) return false;
  *path = out;
  return true;
}

}  // namespace OxBase

int NET_LSS_CreateClient(const NET_LSS_CLIENT_INFO* info) {
  try {
    if (!info || info->connectType != NET_LSS_CONNECT_TYPE_HTTP || info->port == 0) {
      fail(NET_LSS_ERR_BAD_PARAM);
      return -1;
    }
    const std::string ip(info->ip, strnlen(info->ip, sizeof info->ip));
    in_addr parsed{};
    if (ip.empty() || inet_pton(AF_INET, ip.c_str(), &parsed) != 1) {
      fail(NET_LSS_ERR_BAD_PARAM);
      return -1;
    }
    initCurlOnce();
    auto client = std::make_shared<Client>();
    client->origin = "http://" + ip + ":" + std::to_string(info->port);
    client->curl = curl_easy_init();
    if (!client->curl) {
      fail(NET_LSS_ERR_NO_RESOURCES);
      return -1;
    }
    const int handle = Registry::instance().add(std::move(client));
    if (handle < 0) {
      fail(NET_LSS_ERR_NO_RESOURCES);
      return -1;
    }
    succeed();
    return handle;
  } catch (...) {
    fail(NET_LSS_ERR_NO_RESOURCES);
    return -1;
  }
}

int NET_LSS_DestroyClient(int handle) {
  try {
    return Registry::instance().remove(handle) ? succeed() : fail(NET_LSS_ERR_BAD_HANDLE);
  } catch (...) {
    return fail(NET_LSS_ERR_NO_RESOURCES);
  }
}

int NET_LSS_ClientSetParam(int handle, const char* name, const char* value) {
  try {
    std::shared_ptr<Client> c = Registry::instance().find(handle);
    if (!c) return fail(NET_LSS_ERR_BAD_HANDLE);
    if (!name || !value) return fail(NET_LSS_ERR_BAD_PARAM);
    const size_t length = strnlen(value, kMaxParamLength + 1);
    if (length > kMaxParamLength) return fail(NET_LSS_ERR_BAD_PARAM);
    std::string text(value, length);
    OxBase::ScopedWipe wipeText(&text[0], text.size());
    std::lock_guard<std::mutex> lock(c->mutex);
    if (std::strcmp(name, "Pool-Id") == 0 || std::strcmp(name, "File-Path") == 0) {
      if (!validSegments(text)) return fail(NET_LSS_ERR_BAD_PARAM);
      (name[0] == 'P' ? c->poolId : c->filePath) = text;
      return succeed();
    }
    if (std::strcmp(name, "Access-Key") == 0 || std::strcmp(name, "Secret-Key") == 0) {
      std::string& key = name[0] == 'A' ? c->accessKey : c->secretKey;
      OxBase::SecureWipe(key);
      key.assign(text);
      return succeed();
    }
    return fail(NET_LSS_ERR_BAD_PARAM);
  } catch (...) {
    return fail(NET_LSS_ERR_NO_RESOURCES);
  }
}

int NET_LSS_ClientDoUploadBuffer(int handle, char* answer, int answerSize, const char* data, int length) {
  try {
    if (answer && answerSize > 0) answer[0] = '\0';
    std::shared_ptr<Client> c = Registry::instance().find(handle);
    if (!c) return fail(NET_LSS_ERR_BAD_HANDLE);
    if (!answer || answerSize <= 0 || !data || length <= 0) return fail(NET_LSS_ERR_BAD_PARAM);
    std::lock_guard<std::mutex> lock(c->mutex);
    if (c->poolId.empty() || c->filePath.empty() || c->accessKey.empty() || c->secretKey.empty()) {
      return fail(NET_LSS_ERR_BAD_PARAM);
    }
    unsigned char random[16];
    for (size_t i = 0; i < sizeof random; i += 4) {
      const uint32_t r = OxBase::Env::Current()->Random32();
      std::memcpy(random + i, &r, 4);
    }
    char randomHex[2 * sizeof random + 1];
    convertByteArrayToCharArray(random, sizeof random, randomHex, sizeof randomHex);
    const std::string url = c->origin + kBucketPath + encodeSegments(c->poolId) + "/" + randomHex + "/" +
                            encodeSegments(c->filePath);
    if (perform(*c, true, url, data, static_cast<size_t>(length)) != 0) return -1;
    const size_t room = static_cast<size_t>(answerSize) - 1;
    const size_t n = url.size() < room ? url.size() : room;
    std::memcpy(answer, url.data(), n);
    answer[n] = '\0';
    return succeed();
  } catch (...) {
    return fail(NET_LSS_ERR_NO_RESOURCES);
  }
}

int NET_LSS_ClientDoDelete(int handle, const char* url) {
  try {
    std::shared_ptr<Client> c = Registry::instance().find(handle);
    if (!c) return fail(NET_LSS_ERR_BAD_HANDLE);
    std::lock_guard<std::mutex> lock(c->mutex);
    // Only the client's own store ever sees its keys.
    std::string path;
    if (!OxBase::LssObjectPath(c->origin, url, &path)) return fail(NET_LSS_ERR_FOREIGN_URL);
    if (c->accessKey.empty() || c->secretKey.empty()) return fail(NET_LSS_ERR_BAD_PARAM);
    return perform(*c, false, c->origin + path, nullptr, 0);
  } catch (...) {
    return fail(NET_LSS_ERR_NO_RESOURCES);
  }
}

int NET_LSS_GetLastError() { return t_lastError; }

int NET_LSS_HAMSHA256(const char* key, const char* data, char* out, int outSize) {
  if (!key || !data || !out || outSize < static_cast<int>(2 * OxBase::kSha256Bytes + 1)) {
    if (out && outSize > 0) out[0] = '\0';
    return fail(NET_LSS_ERR_BAD_PARAM);
  }
  unsigned char mac[EVP_MAX_MD_SIZE];
  OxBase::ScopedWipe wipeMac(mac, sizeof mac);
  unsigned int macLength = 0;
  if (!HMAC(EVP_sha256(), key, static_cast<int>(std::strlen(key)), reinterpret_cast<const unsigned char*>(data),
            std::strlen(data), mac, &macLength) ||
      macLength != OxBase::kSha256Bytes) {
    out[0] = '\0';
    return fail(NET_LSS_ERR_DIGEST);
  }
  convertByteArrayToCharArray(mac, static_cast<int>(macLength), out, outSize);
  return succeed();
}

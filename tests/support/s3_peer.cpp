#include "support/s3_peer.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/crypto_util.h"
#include "platform/hex.h"

namespace s3test {

namespace {

std::string peerDir() { return std::string(OXCFG_SOURCE_DIR) + "/tests/peer"; }

sockaddr_in socketAddress(const std::string& address, uint16_t port) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &sa.sin_addr);
  return sa;
}

// A JSON text escaped for the one-line configuration of the peer.
std::string jsonString(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// The value of `key` in one journal line (strings unescaped for \" and \\).
std::string jsonValue(const std::string& line, const std::string& key) {
  const std::string tag = "\"" + key + "\":";
  size_t at = line.find(tag);
  if (at == std::string::npos) return "";
  at += tag.size();
  if (at < line.size() && line[at] == '"') {
    std::string out;
    for (size_t i = at + 1; i < line.size() && line[i] != '"'; ++i) {
      if (line[i] == '\\' && i + 1 < line.size()) ++i;
      out += line[i];
    }
    return out;
  }
  const size_t end = line.find_first_of(",}", at);
  const std::string raw = line.substr(at, end - at);
  return raw == "null" ? "" : raw;
}

size_t collect(char* data, size_t size, size_t count, void* out) {
  static_cast<std::string*>(out)->append(data, size * count);
  return size * count;
}

bool writeAll(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

uint16_t freePort(const std::string& address) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  sockaddr_in sa = socketAddress(address, 0);
  socklen_t len = sizeof sa;
  uint16_t port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len) == 0) {
    port = ntohs(sa.sin_port);
  }
  ::close(fd);
  return port;
}

std::string sha256Hex(const std::string& data) {
  unsigned char digest[OxBase::kSha256Bytes];
  OxBase::Sha256(data.data(), data.size(), digest);
  return Vlue2HexString(digest, sizeof digest);
}

std::string S3Peer::unavailableReason() {
  if (::access((peerDir() + "/node_modules/@20minutes/s3rver/package.json").c_str(), R_OK) != 0) {
    return "the storage peer is not installed in tests/peer (run scripts/install-deps.sh)";
  }
  return "";
}

bool S3Peer::start(const std::string& address, uint16_t port, const std::string& accessKey,
                   const std::string& secretKey, const std::string& workDir, std::string* error) {
  stop();
  ::mkdir(workDir.c_str(), 0700);
  journalPath_ = workDir + "/journal";
  ::unlink(journalPath_.c_str());
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return *error = "pipe failed", false;
  if (::pipe2(out, O_CLOEXEC) != 0) {
    ::close(in[0]);
    ::close(in[1]);
    return *error = "pipe failed", false;
  }
  const pid_t parent = ::getpid();
  const std::string script = peerDir() + "/run-peer.js";
  const pid_t pid = ::fork();
  if (pid == 0) {
    // The peer must not outlive the test: the kernel kills it when the
    // parent goes, also between fork and this call.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    const char* argv[] = {"node", script.c_str(), nullptr};
    ::execvp("node", const_cast<char* const*>(argv));
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  if (pid < 0) {
    ::close(in[1]);
    ::close(out[0]);
    return *error = "fork failed", false;
  }
  pid_ = pid;
  stdinFd_ = in[1];
  const std::string config = "{\"address\":" + jsonString(address) + ",\"port\":" + std::to_string(port) +
                             ",\"directory\":" + jsonString(workDir + "/data") +
                             ",\"accessKey\":" + jsonString(accessKey) + ",\"secretKey\":" + jsonString(secretKey) +
                             ",\"journal\":" + jsonString(journalPath_) + "}\n";
  std::string said;
  bool ready = writeAll(stdinFd_, config);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (ready && said.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd p{out[0], POLLIN, 0};
    if (left.count() <= 0 || ::poll(&p, 1, static_cast<int>(left.count())) <= 0) {
      ready = false;
      break;
    }
    char buf[256];
    const ssize_t n = ::read(out[0], buf, sizeof buf);
    if (n <= 0) {
      ready = false;
      break;
    }
    said.append(buf, static_cast<size_t>(n));
  }
  ::close(out[0]);
  if (!ready || said.compare(0, 6, "READY ") != 0) {
    *error = "the storage peer did not start: " + said;
    stop();
    return false;
  }
  port_ = static_cast<uint16_t>(std::stoi(said.substr(6)));
  return true;
}

void S3Peer::stop() {
  if (stdinFd_ >= 0) {
    ::close(stdinFd_);
    stdinFd_ = -1;
  }
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
  }
}

std::vector<JournalEntry> S3Peer::journal() const {
  std::vector<JournalEntry> out;
  std::ifstream in(journalPath_);
  std::string line;
  while (std::getline(in, line)) {
    JournalEntry e;
    e.method = jsonValue(line, "method");
    e.url = jsonValue(line, "url");
    e.signed_ = jsonValue(line, "signed") == "true";
    e.sha256 = jsonValue(line, "sha256");
    e.contentType = jsonValue(line, "contentType");
    e.length = std::atol(jsonValue(line, "length").c_str());
    e.remotePort = std::atoi(jsonValue(line, "remotePort").c_str());
    e.status = std::atoi(jsonValue(line, "status").c_str());
    out.push_back(e);
  }
  return out;
}

SignedHttp::SignedHttp(std::string accessKey, std::string secretKey)
    : curl_(curl_easy_init()), accessKey_(std::move(accessKey)), secretKey_(std::move(secretKey)) {}

SignedHttp::~SignedHttp() { curl_easy_cleanup(static_cast<CURL*>(curl_)); }

HttpAnswer SignedHttp::request(const std::string& method, const std::string& url, const std::string& body) {
  HttpAnswer answer;
  CURL* h = static_cast<CURL*>(curl_);
  const bool put = method == "PUT";
  curl_slist* headers = curl_slist_append(nullptr, ("x-amz-content-sha256: " + sha256Hex(put ? body : "")).c_str());
  if (put) headers = curl_slist_append(headers, "Content-Type: image/jpeg");
  curl_easy_setopt(h, CURLOPT_URL, url.c_str());
  curl_easy_setopt(h, CURLOPT_NOPROXY, "*");
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, 10000L);
  curl_easy_setopt(h, CURLOPT_AWS_SIGV4, "aws:amz:us-east-1:s3");
  curl_easy_setopt(h, CURLOPT_USERNAME, accessKey_.c_str());
  curl_easy_setopt(h, CURLOPT_PASSWORD, secretKey_.c_str());
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(h, CURLOPT_WRITEDATA, &answer.body);
  if (put) {
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.data());
  } else {
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1));
    curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
  }
  curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method.c_str());
  answer.curlCode = curl_easy_perform(h);
  curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &answer.status);
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  curl_easy_setopt(h, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
  curl_slist_free_all(headers);
  return answer;
}

RawServer::RawServer(const std::string& address, uint16_t port, Behaviour behaviour) : behaviour_(behaviour) {
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return;
  const int one = 1;
  ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in sa = socketAddress(address, port);
  socklen_t len = sizeof sa;
  if (::bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0 || ::listen(fd_, 16) != 0 ||
      ::getsockname(fd_, reinterpret_cast<sockaddr*>(&sa), &len) != 0) {
    ::close(fd_);
    fd_ = -1;
    return;
  }
  port_ = ntohs(sa.sin_port);
  thread_ = std::thread([this] { serve(); });
}

RawServer::~RawServer() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  if (fd_ >= 0) ::close(fd_);
}

void RawServer::serve() {
  while (!stop_) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, 100) <= 0) continue;
    const int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    ++connections_;
    // Read what the client sends first, as a server would.
    char buf[65536];
    pollfd c{client, POLLIN, 0};
    if (::poll(&c, 1, 1000) > 0) (void)::read(client, buf, sizeof buf);
    switch (behaviour_) {
      case kSilent:
        while (!stop_) {
          pollfd q{client, POLLIN, 0};
          if (::poll(&q, 1, 100) > 0 && ::read(client, buf, sizeof buf) <= 0) break;
        }
        break;
      case kGarbage:
        writeAll(client, "\x01\x02 this is not HTTP \xff\xfe\r\n\r\n");
        break;
      case kCloseMidBody:
        writeAll(client, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nonly a few bytes");
        break;
      case kOk:
        writeAll(client, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        break;
    }
    ::shutdown(client, SHUT_RDWR);
    ::close(client);
  }
}

}  // namespace s3test

// The picture storage client: uploads pictures to and deletes them from the
// gateway's own S3-compatible picture store, over HTTP with libcurl.
//
// Protocol. The store is reached at http://<ip>:<port>, path-style, in the
// bucket "pss" that the service already has (the client never creates or
// checks buckets). An upload is exactly one
//   PUT /pss/<Pool-Id>/<32 lower-case hex random>/<File-Path>
// with the picture as body and the headers "Content-Type: image/jpeg" and
// "x-amz-content-sha256" (hex SHA-256 of the body); a delete is one DELETE of
// such an address carrying the SHA-256 of the empty body. Both are signed
// with AWS Signature Version 4 (region "us-east-1", service "s3") under the
// client's Access-Key and Secret-Key. Any 2xx answer is success. No header is
// ever sent with an empty value (the signature would not match). No request
// is retried, no redirect followed, no proxy used.
//
// Clients. A client is a non-negative handle (-1 means none) owning one
// libcurl easy handle, reused for every request so the connection stays open
// between uploads. Connect time-out 3 s, whole request at most 10 s. All
// functions are thread-safe; requests of one client run one at a time.
//
// Errors. Every function sets the calling thread's last error
// (NET_LSS_GetLastError): 0 after success, the HTTP status for an answered
// failure (403, 404, 500, ...), or one of the negative NET_LSS_ERR_ codes.
//
// Secrets. The keys stay in memory only: they are never logged or written,
// and are wiped when the client is destroyed.
//
// These functions are internal to the library: they are not exported from
// the shared object.
#ifndef OXCFG_PLATFORM_LSS_CLIENT_H
#define OXCFG_PLATFORM_LSS_CLIENT_H

#include <cstdint>

// The 200-byte creation record of a client, zero-filled before use.
struct NET_LSS_CLIENT_INFO {
  int32_t connectType;  // 4: the gateway's own store over HTTP (the only type)
  char ip[128];         // IPv4 address text of the store, NUL-padded
  uint16_t port;        // TCP port of the store
  char reserved[66];    // zero
};
static_assert(sizeof(NET_LSS_CLIENT_INFO) == 200, "the creation record is 200 bytes");

constexpr int32_t NET_LSS_CONNECT_TYPE_HTTP = 4;

// Negative last-error codes (positive ones are HTTP statuses).
enum : int {
  NET_LSS_ERR_BAD_HANDLE = -1,     // no client has this handle
  NET_LSS_ERR_BAD_PARAM = -2,      // an argument, record or parameter is unusable
  NET_LSS_ERR_FOREIGN_URL = -3,    // an address not on the client's own store
  NET_LSS_ERR_CONNECT = -4,        // the store refused or could not be reached
  NET_LSS_ERR_TIMEOUT = -5,        // connect or request time-out
  NET_LSS_ERR_TRANSPORT = -6,      // broken, garbled or incomplete answer
  NET_LSS_ERR_NO_RESOURCES = -7,   // memory, handles or the HTTP library
  NET_LSS_ERR_DIGEST = -8,         // the keyed digest could not be made
};

// Creates a client for the store named by `info` (type 4, a dotted IPv4
// address, a port other than 0). Returns its handle (>= 0), or -1.
int NET_LSS_CreateClient(const NET_LSS_CLIENT_INFO* info);

// Destroys a client and wipes its keys. 0, or -1 for an unknown handle.
int NET_LSS_DestroyClient(int handle);

// Sets one parameter of a client: "Pool-Id" and "File-Path" (path segments of
// the stored object's key, separated by "/", none empty, "." or ".."),
// "Access-Key" and "Secret-Key". A value replaces the previous one. 0, or -1
// for an unknown handle, name or unusable value.
int NET_LSS_ClientSetParam(int handle, const char* name, const char* value);

// Uploads `length` bytes (at least 1) at `data` as a new object in the
// client's pool and writes its address, "http://<ip>:<port>/pss/<key>", into
// `answer`: at most answerSize - 1 characters, always NUL-terminated. The
// four parameters must be set. 0, or -1 (answer then empty when it has room).
int NET_LSS_ClientDoUploadBuffer(int handle, char* answer, int answerSize, const char* data,
                                 int length);

// Deletes the object at `url`, which must be an address on the client's own
// store ("http://<ip>:<port>/pss/<key>", exactly as the client names it);
// any other address is refused without a request. Deleting a missing object
// succeeds. Access-Key and Secret-Key must be set. 0, or -1.
int NET_LSS_ClientDoDelete(int handle, const char* url);

// The calling thread's last error (see above).
int NET_LSS_GetLastError();

// HMAC-SHA256 of `data` under `key`, as 64 lower-case hexadecimal characters
// and a NUL, into `out` of `outSize` bytes (at least 65). 0, or -1.
int NET_LSS_HAMSHA256(const char* key, const char* data, char* out, int outSize);

#include <string>

namespace OxBase {

// The request path of the object that `url` names on the store whose origin
// is `origin` ("http://<ip>:<port>"), in the one spelling that the store
// signs: "/pss/" followed by the key's segments, each percent-encoded except
// for the unreserved characters. False, without touching `path`, for any
// other address: another scheme, host, port or user part, a query or
// fragment, an empty, "." or ".." segment, a bad or control-character escape,
// any character outside a path segment's own set, or more than 8192
// characters, before or after the encoding. Pure; for the client and its
// tests.
bool LssObjectPath(const std::string& origin, const char* url, std::string* path);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_LSS_CLIENT_H

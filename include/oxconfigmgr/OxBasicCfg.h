// Identity of the gateway: product, model, software version, operating
// system and the web session identifier of this installation.
#ifndef OXCONFIGMGR_OXBASICCFG_H
#define OXCONFIGMGR_OXBASICCFG_H

#include <oxconfigmgr/OxExport.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace OxConfigMgr {

// Section "BasicInfo" of "Config.xml": "ProductForm", "Name", "Model",
// "SoftwareVersion" and "WebSessionID", all required.
//
// Loaded once by the start of the library; afterwards only the product name
// changes. Getters are lock-free and thread-safe; they return pointers into
// the object, valid for its lifetime and never rewritten: setProductName
// publishes a new text instead of changing the old one, so a caller holding
// the previous name keeps reading it whole. Every distinct name set is kept
// until the object goes (33 bytes each).
class OXCFG_API CBasicCfg {
 public:
  // All fields empty.
  CBasicCfg();
  ~CBasicCfg();
  CBasicCfg(const CBasicCfg&) = delete;
  CBasicCfg& operator=(const CBasicCfg&) = delete;

  // Reads the section and the operating system name. An empty
  // "WebSessionID" is replaced by ten hexadecimal characters made from a new
  // UUID and written back, so the identifier is made once per installation.
  // Returns 1, or 0 when "Config.xml" cannot be read, an element is missing,
  // the operating system name is unknown or no identifier could be made;
  // fields read before a failure keep their new values. Not thread-safe: run
  // once, before the object is shared.
  int loadFile();
  // Reads the product name again from a "Config.xml" that another process
  // replaced: memory only, nothing written, no identifier made. 1, or 0 with
  // memory untouched when the file does not parse or lacks "Name".
  int reloadFile();

  // Name of the running operating system ("PRETTY_NAME" of the os-release
  // file), at most 128 characters.
  const char* getOperatingSystem() const;
  // Product name, model and software version, at most 32 characters each.
  const char* getProductName() const;
  const char* getProductModel() const;
  const char* getVersion() const;
  // Always empty: the serial number is not kept in the configuration.
  const char* getSerialNo() const;
  // Ten lower-case hexadecimal characters (empty before loadFile).
  const char* getWebSessionID() const;

  // Replaces "Name" in the file, then in memory. Returns 0 done; 1 name null
  // or of 33 or more characters, or the text could not be replaced; 2
  // "Config.xml" could not be read; 3 it could not be written; 14 "Config",
  // "BasicInfo" or "Name" is missing. On failure memory is unchanged.
  // Thread-safe: calls are serialised with each other and with every other
  // change of "Config.xml".
  int setProductName(const char* name);

 private:
  struct NameVersions;  // every product name published, never rewritten

  uint8_t m_productForm;
  char m_operatingSystem[128 + 1];  // 128 characters and a terminator
  std::unique_ptr<NameVersions> m_names;
  std::atomic<const char*> m_productName;  // into m_names
  char m_productModel[33];
  char m_serialNo[49];
  char m_version[33];
  char m_webSessionID[11];
};

// Name of the running operating system. 1 with the name in `out`, or 0
// (`out` untouched). Thread-safe.
OXCFG_API int GetOSVersion(std::string& out);

// "PRETTY_NAME" of "/etc/os-release". Only values in double quotes count: a
// line with an unquoted value, an empty key or an empty value is skipped, and
// a later line replaces an earlier one of the same key. 1 with the name in
// `out`, or 0 when the file cannot be read or has no quoted "PRETTY_NAME"
// (`out` untouched). Thread-safe.
OXCFG_API int GetLinuxOSVersion(std::string& out);

// The serial number is not available: always 0, `out` untouched.
OXCFG_API int GetSerialNo(std::string& out);

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXBASICCFG_H

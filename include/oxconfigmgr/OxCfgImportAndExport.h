// Export of the gateway's configuration as one password-protected ZIP
// archive, and import of such an archive into the running gateway.
//
// The archive holds "Config.xml" (without the local "NATGateway" section),
// "PrivateConfig.xml" (without the local service sections "LDM",
// "HTTPService", "WebSocketService", "InternalCommunication" and "Log"),
// "QAPIConfig.xml", the databases "Config.db3" and "Device.db3", the web
// server's "cert.key", "cert.pem" and "key.pass" where they exist, and the
// marker "LinuxConfig.xml". Everything is staged in the folder
// "configuration/" of the working directory, which every call removes
// before it returns. The archiver is the program "7za" in the working
// directory (a link to the system's, or a wrapper); it never sees the
// password on its command line.
#ifndef OXCONFIGMGR_OXCFGIMPORTANDEXPORT_H
#define OXCONFIGMGR_OXCFGIMPORTANDEXPORT_H

#include <oxconfigmgr/OxExport.h>

#include <string>

namespace OxBase {
class CXmlBase;
}

namespace OxConfigMgr {

// Results of CCfgImportAndExport::importConfigData.
enum tagImportResult {
  IMPORT_OK = 0,                 // imported
  IMPORT_NOT_LINUX_CONFIG = 1,   // the archive has no "LinuxConfig.xml" marker
  IMPORT_FAILED = 9,             // reading the live files, merging, replacing the
                                 // configuration database, or getting the user or
                                 // private configuration failed
  IMPORT_UNPACK_FAILED = 258,    // unpacking failed (wrong password, damaged or unsafe
                                 // archive), or its "Config.xml" names no software version
  IMPORT_NEWER_VERSION = 275,    // the archive comes from a newer software version
};

// Results of CCfgImportAndExport::exportConfigData.
enum tagExportResult {
  EXPORT_OK = 0,
  EXPORT_FAILED = 9,
};

// Holds no state between calls. Calls are serialised, in this process and
// against other processes working in the same directory (they share the
// staging folder). Another writer of the configuration files must not run
// during an import: the three XML files are locked for the import's whole
// length, each database while it is replaced, the certificate files not.
class OXCFG_API CCfgImportAndExport {
 public:
  CCfgImportAndExport();
  ~CCfgImportAndExport();
  CCfgImportAndExport(const CCfgImportAndExport&) = delete;
  CCfgImportAndExport& operator=(const CCfgImportAndExport&) = delete;

  // Builds the archive, encrypted with AES-256 under `password`, and returns
  // its bytes in `data` (unchanged on failure). 0 on success, 9 on any
  // failure (no archiver, a password the archiver refuses, such as an empty
  // one or one of more than 99 characters once in the form the archiver
  // receives, a live file that cannot be read). Neither the staging folder
  // nor "configuration.zip" is left behind. Never throws.
  int exportConfigData(std::string& data, const std::string& password);

  // Applies the archive "configurationIn.zip" of the working directory (put
  // there by the caller, who also removes it), opened with `password`: its
  // values are merged into the live XML files (the local "NATGateway", the
  // local private service sections, the running software version and the
  // administrator's credentials stay), the address list is taken from it
  // whole, and the databases and certificate files are replaced. Before
  // anything is unpacked the archive is listed and refused (258) if any entry
  // would land outside the staging folder, is a link, or if it is too large
  // or has too many entries. Every file the import may change is first
  // copied aside durably: when a later step fails, or the process dies
  // half-way (the next start then does it), all of them are put back as they
  // were. Returns a tagImportResult. Never throws.
  int importConfigData(const std::string& password);

 private:
  // The steps, each 1 for success and 0 for failure unless stated.
  std::string getVersion(const std::string& path);  // "" when absent or unreadable
  int isLinuxConfigFlag();
  int exportDBTable();
  int exportXMLCfg();
  int exportConfigXMLFile();
  int exportQAPIConfigXMLFile();
  int exportPrivateConfigXMLFile();
  int exportHttpsConfigFile();
  int exportLinuxConfigFlag();
  int importDeviceDBTable();
  int importConfigDBTable();
  int backupXMLCfg(OxBase::CXmlBase& config, OxBase::CXmlBase& privateCfg, OxBase::CXmlBase& qapi);
  int importXMLCfg(const std::string& currentVersion);
  int updateNetworkCfg(OxBase::CXmlBase& live, OxBase::CXmlBase& imported);
  int importConfigXMLFile(const std::string& currentVersion);
  int importQAPIConfigXMLFile();
  int importPrivateConfigXMLFile();
  int importHttpsConfigFile();
  int encryptCompressCfg(const std::string& password);
  int decryptExtractCfg(const std::string& password);
  int readcompressCfgFile(std::string& data);
  int deleteCfgFile(const std::string& dir);

  // Steps 9 to 11 of an import, after the merge: the administrator's record
  // is kept, the databases replaced and the new settings taken in.
  int replaceDatabases();
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXCFGIMPORTANDEXPORT_H

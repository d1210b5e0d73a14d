// Network configuration: the "Network" section of "Config.xml".
//
// CNetworkCfg keeps the gateway's listening and externally mapped ports, the
// port-mapping switches, the device keep-alive and the table of local
// addresses with the outside addresses and device protocols bound to each.
// The instance manager calls start() once; afterwards getters answer from
// memory and setters rewrite the file (and, for some of them, the memory).
//
// Results of the setters (uint32_t): 0 done, or nothing to do because the
// value equals the one in memory; 1 the element exists but its text was not
// replaced; 2 "Config.xml" could not be read; 3 it could not be written. A
// missing element is not created: the file is rewritten unchanged and 0 is
// returned. No method throws.
//
// Thread-safety: getters may run at any time from any thread; port and
// switch getters take no lock, address getters copy the table under a short
// internal lock that is never held across file work. Each setter
// is serialised with itself (a mutex of its own) and, around its file work,
// with every other read-modify-write of "Config.xml"; two different setters
// may run at once and both changes persist.
#ifndef OXCONFIGMGR_OXNETWORKCFG_H
#define OXCONFIGMGR_OXNETWORKCFG_H

#include <oxconfigmgr/OxExport.h>
#include <oxconfigmgr/OxMutex.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// One entry of the address table, copied by value. The text fields are
// NUL-padded and not necessarily NUL-terminated: a text that fills its field
// has no terminator (read them with strnlen and the field size).
struct _NIC_INFO_V4 {
  char ipv4[16];             // local IPv4 address, dotted
  char externalIP[67];       // address under which the platform reaches the gateway
  char deviceExternal[67];   // address under which devices reach the gateway
  uint32_t protocolMask;     // DeviceProtocol bits bound to this address
  char description[132];     // adapter name or description (adapter listings only)
};

namespace OxConfigMgr {

// Device protocols, used as single bits of _NIC_INFO_V4::protocolMask.
enum DeviceProtocol : uint32_t {
  PROTOCOL_SDK = 1,
  PROTOCOL_LUMEN = 2,
  PROTOCOL_LUMEN5 = 4,
  PROTOCOL_QAPI = 8,
};

// Which Lumen 5.0 port carries WISP 5 alarms.
enum WISP5AlarmPortType : int32_t {
  WISP5_ALARM_PORT_VIDEO = 1,  // the video-alarm port
  WISP5_ALARM_PORT_ACS = 2,    // the access-control alarm port
};

// The network configuration: ports, port mapping, keep-alive and the
// address table (see the top of this file for results and threads).
class OXCFG_API CNetworkCfg {
 public:
  CNetworkCfg();
  ~CNetworkCfg();
  CNetworkCfg(const CNetworkCfg&) = delete;
  CNetworkCfg& operator=(const CNetworkCfg&) = delete;

  // loadFile() and, when it succeeded, updateLocalIP(); true when both did.
  // Called once, from one thread, before the object is shared.
  bool start();
  // Reads the "Network" section into memory and writes the document back
  // (the legacy "PortMapping/enable" element leaves the file that way).
  // Absent elements keep the current values; a missing "HeartbeatParam"
  // gives 30 seconds and 3 misses. Reads at most 16 "Addr" entries. False
  // when "Config.xml" cannot be read or written back. Not for concurrent use.
  bool loadFile();
  // Reads the ports, numbers and mapping switches of the "Network" section
  // again from a "Config.xml" that another process replaced, and publishes
  // them to the lock-free getters: memory only, nothing written, no legacy
  // clean-up. Absent elements keep their values; the address table (kept by
  // the adapter refresh) and the alarm port type are left alone. False, with
  // memory untouched, when the file does not parse. Thread-safe against the
  // getters; serialised by the caller against other reloads.
  bool reloadFile();
  // Takes the address table of a "Config.xml" that another process
  // replaced: its entries (addresses, outside addresses and protocol
  // bindings, at most 16) become the table, an address keeping the adapter
  // name it had. Memory only, under the table's lock. False, with the table
  // untouched, when the file does not parse or lists no usable address.
  // The next adapter refresh reconciles the table with the adapters.
  bool reloadAddrList();

  // ---- ports and switches (memory, lock-free) ------------------------------
  uint16_t getHttpPort() const;
  uint16_t getHttpsPort() const;
  int getHttpsEnable() const;
  uint16_t getRtspPort() const;
  uint16_t getPssUploadPort() const;
  uint16_t getPssDownloadPort() const;
  uint16_t getLumenRegPort() const;
  uint16_t getLumenAlarmPort() const;
  void getLumenStreamPort(uint16_t& minPort, uint16_t& maxPort) const;
  uint16_t getLumenV5RegPort() const;
  uint16_t getLumenV5AlarmPort() const;
  uint16_t getLumenV5VideoAlarmPort() const;
  uint16_t getLumenV5AcsAlarmPort() const;
  uint16_t getLumenV5StreamPort() const;
  uint16_t getLumenV5PlayBackPort() const;
  uint16_t getLumenV5TwowayAudioPort() const;

  // The external (mapped) ports under which the platform or the devices
  // reach each service through a NAT router, from memory.
  uint16_t getExtHttpPort() const;
  uint16_t getExtHttpsPort() const;
  uint16_t getExtRtspPort() const;
  uint16_t getExtPssUploadPort() const;
  uint16_t getExtPssDownloadPort() const;
  uint16_t getExtLumenRegPort() const;
  uint16_t getExtLumenAlarmPort() const;
  void getExtLumenStreamPort(uint16_t& minPort, uint16_t& maxPort) const;
  uint16_t getExtLumenV5RegPort() const;
  uint16_t getExtLumenV5AlarmPort() const;
  uint16_t getExtLumenV5VideoAlarmPort() const;
  uint16_t getExtLumenV5AcsAlarmPort() const;
  uint16_t getExtLumenV5StreamPort() const;
  uint16_t getExtLumenV5PlayBackPort() const;
  uint16_t getExtLumenV5TwowayAudioPort() const;

  // The platform and the device port-mapping switches, from memory.
  bool isPlatformPortMapping() const;
  bool isDevicePortMapping() const;
  // Platform mapping on, the external port set and getGatewayOuterIP() not
  // "0.0.0.0".
  bool isHttpMapping() const;
  bool isRtspMapping() const;

  // Which Lumen 5.0 port carries WISP 5 alarms, from memory.
  WISP5AlarmPortType getWISP5AlarmPortType() const;
  // The (external) Lumen 5.0 port that carries WISP 5 alarms: the
  // access-control alarm port for type 2, otherwise the video-alarm port (an
  // unknown type is logged).
  uint16_t getWISP5AlarmPort() const;
  uint16_t getExtWISP5AlarmPort() const;
  void getDevKeepAliveParam(uint16_t& seconds, uint16_t& count) const;

  // ---- setters -----------------------------------------------------------------
  // Web and media ports: return 0 at once when the value equals memory;
  // memory follows the file: it takes the new value only once the file
  // holding it was written (setRtspPort also when its element is missing),
  // so after any failure the getter answers the old value.
  uint32_t setHttpPort(unsigned short port);
  uint32_t setHttpsPort(unsigned short port);
  uint32_t setHttpsEnable(int enable);
  uint32_t setRtspPort(unsigned short port);
  uint32_t setExtHttpPort(unsigned short port);
  uint32_t setExtHttpsPort(unsigned short port);
  uint32_t setExtRtspPort(unsigned short port);

  // Picture-storage and device-protocol ports change the file only: the
  // getters answer the value loaded at start until the next start. The
  // internal ones always rewrite the file; the external ones return 0 at once
  // when the value equals the loaded one.
  uint32_t setPssUploadPort(unsigned short port);
  uint32_t setExtPssUploadPort(unsigned short port);
  uint32_t setLumenRegPort(unsigned short port);
  uint32_t setLumenAlarmPort(unsigned short port);
  uint32_t setLumenStreamPort(unsigned short minPort, unsigned short maxPort);
  uint32_t setLumenV5RegPort(unsigned short port);
  uint32_t setLumenV5AlarmPort(unsigned short port);
  uint32_t setLumenV5VedioAlarmPort(unsigned short port);
  uint32_t setLumenV5AcsAlarmPort(unsigned short port);
  uint32_t setLumenV5StreamPort(unsigned short port);
  uint32_t setLumenV5PlayBackPort(unsigned short port);
  uint32_t setLumenV5TwowayAudioPort(unsigned short port);
  uint32_t setExtLumenRegPort(unsigned short port);
  uint32_t setExtLumenAlarmPort(unsigned short port);
  // Unchanged only when both bounds equal the loaded ones.
  uint32_t setExtLumenStreamPort(unsigned short minPort, unsigned short maxPort);
  uint32_t setExtLumenV5RegPort(unsigned short port);
  uint32_t setExtLumenV5AlarmPort(unsigned short port);
  uint32_t setExtLumenV5VedioAlarmPort(unsigned short port);
  uint32_t setExtLumenV5AcsAlarmPort(unsigned short port);
  uint32_t setExtLumenV5StreamPort(unsigned short port);
  uint32_t setExtLumenV5PlayBackPort(unsigned short port);
  uint32_t setExtLumenV5TwowayAudioPort(unsigned short port);

  // Mapping switches: written as "true" (non-zero) or "false"; memory takes
  // the argument as given after a successful write.
  uint32_t setPlatformPortMapping(int enable);
  uint32_t setDevicePortMapping(int enable);
  // The only way to get type 2 in memory (loading always yields 1); memory
  // follows a successful write.
  uint32_t setWISP5AlarmPortType(const WISP5AlarmPortType& type);
  // setLumenV5VedioAlarmPort / setExtLumenV5VedioAlarmPort, or the
  // access-control variants for type 2; their result.
  uint32_t setWISP5AlarmPort(unsigned short port);
  uint32_t setExtWISP5AlarmPort(unsigned short port);
  // Always rewrites "HeartbeatParam"; each value whose element was changed
  // reaches memory once the file was written.
  uint32_t setDevKeepAliveParam(unsigned short seconds, unsigned short count);

  // ---- addresses -------------------------------------------------------------
  // Refreshes the table from the machine's adapters, at most once every two
  // minutes (true when skipped). Carries outside addresses and protocols of
  // known addresses over, hands those of vanished addresses to entry 0, and
  // binds every protocol to entry 0 the first time. False when the adapters
  // cannot be listed or carry no usable address (the table is kept). Of
  // concurrent calls one refreshes and the others return true at once. A
  // binding or outside address set while a refresh runs is kept by it. A
  // refresh holds Config.xml's write lock from its merge to its write, so
  // it (and the getters below that refresh) may wait for another writer of
  // that file, in this process or another.
  bool updateLocalIP();
  // 1 for a value that is not a single protocol (out untouched); else
  // refreshes and copies the first entry bound to `protocol`, or entry 0
  // when none is; 0.
  int getIPv4ByProtocol(_NIC_INFO_V4& out, DeviceProtocol protocol);
  // Refreshes and appends the table's entries (out is not cleared); 0.
  int getIPv4List(std::vector<_NIC_INFO_V4>& out);
  // Local, platform-side outside and device-side outside address of entry 0.
  std::string getGatewayInterIP() const;
  std::string getGatewayOuterIP() const;
  std::string getDeviceOuterAddr() const;
  // Binds `protocol` to exactly the entries whose address is `ip` (none when
  // no entry has it) and rewrites "AddrList": result of resetAddrList().
  int setProtocolBindIPv4(DeviceProtocol protocol, std::string ip);
  // 1 when some entry has the local address `ip`, else 0.
  int checkProtocolBindIPv4(std::string ip);
  // Sets the platform-side (device-side) outside address of the entry with
  // local address `ip`, in the file (an existing element only) and in memory.
  // 0 also when no entry matched; 2 unreadable, 3 unwritable.
  int setExtIPv4(std::string ip, std::string externalIP);
  int setDevExt(std::string ip, std::string deviceExternal);
  // Rewrites the "Addr" children of an existing "AddrList" from memory.
  // 0, 2 or 3.
  int resetAddrList();
  // Appends the adapters' addresses in adapter order, unsorted and not
  // stored (loopback and 0.0.0.0 left out); 0, or -1 when the adapters
  // cannot be listed.
  int getAdapterInfo(std::vector<_NIC_INFO_V4>& out);

  // ---- picture storage ---------------------------------------------------------
  // The storage service listens on the address bound to the Lumen protocol
  // (entry 0 when none is) and the picture upload port. Both calls use one
  // cached client with the credentials of OX_ConfigMgr_GetStorageConfig(),
  // and run one at a time. The client is kept while calls succeed, also when
  // the address or port changed meanwhile; any failure drops it, so the next
  // call builds one for the current address and port.
  //
  // Stores `picture` (at least one byte) and sets `url` to its address,
  // "http://<ip>:<port>/pss/<key>". The pool is "1" for the request path
  // "/QAPI/Intelligent/FDLib/pictureUpload" (a query after "?" is ignored),
  // otherwise "DeviceGatewayAcsModel". False with `error` set to the HTTP
  // status of a refused request (403 for wrong credentials) or a negative
  // code (not reachable, timed out after at most 10 s, bad argument); `url`
  // is then unchanged.
  bool uploadFacetoPss(int& error, std::string& url, const std::string& picture,
                       const std::string& requestPath);
  // Deletes the picture at `url` (an address as uploadFacetoPss returns it;
  // a missing picture counts as deleted). An address on any other scheme,
  // host or port is refused without sending anything. False on failure.
  bool deleteFacefromPss(const std::string& url);


 private:
  struct Field;      // where a value lives in the section (loader and setters)
  struct Loader;     // the steps of loadFile
  struct SetterRow;  // one row of the setter table
  uint32_t runSetter(const SetterRow& row, uint32_t first, uint32_t second);
  // resetAddrList, with `change` (if any) made to the table first, under
  // the file's transaction.
  int rewriteAddrList(const std::function<void()>& change);
  void releaseStorageClient();

  uint8_t addrCount;
  _NIC_INFO_V4 addrList[16];
  uint16_t httpPort;
  uint16_t httpsPort;
  int32_t httpsEnable;
  uint16_t extHttpPort;
  uint16_t extHttpsPort;
  uint16_t rtspPort;
  uint16_t extRtspPort;
  uint16_t pssUploadPort;
  uint16_t pssDownloadPort;
  uint16_t extPssUploadPort;
  uint16_t extPssDownloadPort;
  int32_t platformPortMapping;
  int32_t devicePortMapping;
  uint16_t lumenRegPort;
  uint16_t extLumenRegPort;
  uint16_t lumenAlarmPort;
  uint16_t extLumenAlarmPort;
  uint16_t lumenStreamMinPort;
  uint16_t lumenStreamMaxPort;
  uint16_t extLumenStreamMinPort;
  uint16_t extLumenStreamMaxPort;
  uint16_t lumenV5RegPort;
  uint16_t extLumenV5RegPort;
  uint16_t lumenV5AlarmPort;
  uint16_t extLumenV5AlarmPort;
  uint16_t lumenV5VideoAlarmPort;
  uint16_t extLumenV5VideoAlarmPort;
  uint16_t lumenV5StreamPort;
  uint16_t extLumenV5StreamPort;
  uint16_t lumenV5PlayBackPort;
  uint16_t extLumenV5PlayBackPort;
  uint16_t lumenV5TwowayAudioPort;
  uint16_t extLumenV5TwowayAudioPort;
  uint16_t lumenV5AcsAlarmPort;
  uint16_t extLumenV5AcsAlarmPort;
  uint16_t keepAliveSeconds;
  uint16_t keepAliveCount;
  int32_t addrListReady;
  OSL_Mutex storageMutex;  // guards the picture-storage client
  int32_t storageClient;   // picture-storage client handle, -1 = none
  WISP5AlarmPortType wisp5AlarmPortType;
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXNETWORKCFG_H

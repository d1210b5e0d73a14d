// The one shape shared by the on/off sections of "Config.xml"
// ("Config"/<section>/"Enable"): event subscription, metadata and Wisp
// listening. Each public class describes its section with a SwitchSection
// and delegates to these functions.
#ifndef OXCFG_SECTIONS_SWITCH_SECTION_H
#define OXCFG_SECTIONS_SWITCH_SECTION_H

#include <atomic>

namespace OxConfigMgr {
namespace sections {

struct SwitchSection {
  const char* name;        // section element under "Config"
  int defaultValue;        // taken, and written, when the section is missing
  const char* missingLog;  // level-3 message (with "[%s(%d)] ") for that case
};

// Reads the switch into `enable` as 0 or 1. A missing section is logged and
// written with the default (the write's result does not matter). Returns 1,
// or 0 when "Config.xml" or its "Config" element cannot be read.
int loadSwitch(const SwitchSection& section, std::atomic<int>& enable);

// The same read for a file another process replaced: memory only, no lock
// of the file and nothing written (a missing section gives the default).
// Returns 1, or 0 with `enable` untouched when the file or its "Config"
// element cannot be read.
int reloadSwitch(const SwitchSection& section, std::atomic<int>& enable);

// Writes the switch: an existing "Enable" gets "1" or "0"; a missing section
// is added under the root element (also when that is not "Config") with the
// value's decimal text as given; a present section without "Enable" is left
// as it is. On success `enable` holds the value as given. Returns 0; 1 when
// the document has no root or "Enable" could not be changed; 2 when
// "Config.xml" could not be read; 3 when it could not be written.
int updateSwitch(const SwitchSection& section, int value, std::atomic<int>& enable);

}  // namespace sections
}  // namespace OxConfigMgr

#endif  // OXCFG_SECTIONS_SWITCH_SECTION_H

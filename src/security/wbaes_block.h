// The optimised block engine of the white-box cipher, shared by the block
// functions and the modes. It computes exactly the composition of the stage
// functions of wbaes_internal.h.
#ifndef OXCFG_SECURITY_WBAES_BLOCK_H
#define OXCFG_SECURITY_WBAES_BLOCK_H

#include "security/wbaes_internal.h"

#include <cstddef>
#include <cstdint>

namespace OxConfigMgr {
namespace wbaes {

// Round keys bound to one direction's key-mixing tables, built once per call
// so that no block repeats the work. Lives on the caller's stack; wipe it
// (WipePreparedKey) before returning.
struct PreparedKey {
  // Offset of the row of table II (VI for the last key) selected by the high
  // and low nibble of round-key byte (j, p): 256p + nibble.
  alignas(64) std::uint32_t hiOffset[kMaxRounds + 1][16];
  alignas(64) std::uint32_t loOffset[kMaxRounds + 1][16];
  // Vector engine only (hasRows): the same selection applied in advance,
  // rows[j][0][p][a] = entry (a * 16 + key high nibble) of position p's
  // table, high nibble kept in place; rows[j][1][p][a] = entry (a * 16 + key
  // low nibble), high nibble moved down. Key mixing of a state byte s is
  // then rows[j][0][p][s >> 4] | rows[j][1][p][s & 15].
  alignas(64) std::uint8_t rows[kMaxRounds + 1][2][16][16];
  bool hasRows;
  int rounds;
};

// `roundKeys`: rounds + 1 row-major round keys as init_key unpacks them.
// rounds must be 1..kMaxRounds (not checked). `blocks` is how many blocks the
// call will process with this key: the rows are built only when the vector
// engine will run and more than one block will use them (for a lone block
// their set-up costs more than it saves).
void PrepareKey(const WbAesDirTables& tables, const std::uint8_t* roundKeys, int rounds,
                std::size_t blocks, PreparedKey* key);
void WipePreparedKey(PreparedKey* key);

// Implementations of the block engine; all give identical results.
enum class Engine {
  kAuto,      // the fastest one this processor runs
  kPortable,  // plain C++, any processor
  kAvx512,    // x86-64 with AVX-512 F/BW/VL/VBMI: runs of blocks are
              // processed 64 at a time with in-register table lookups,
              // single blocks with gathers
};

// Whether `engine` can run here (kAuto and kPortable always can).
bool EngineAvailable(Engine engine);

// Enciphers (tables.enc, decipher = false) or deciphers (tables.dec,
// decipher = true) `blocks` independent 16-byte blocks. `in` and `out` may be
// the same buffer (not partially overlapping). `engine` must be available;
// only tests pick one other than kAuto.
void ProcessBlocks(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks,
                   Engine engine = Engine::kAuto);

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define OXCFG_WBAES_HAVE_AVX512 1
// Defined in wbaes_block_avx512.cpp; callers check the processor first.
bool CpuHasAvx512Engine();
void BuildRowsAvx512(const WbAesDirTables& tables, PreparedKey* key);
void ProcessBlocksAvx512(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
#endif

}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_SECURITY_WBAES_BLOCK_H

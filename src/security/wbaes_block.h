// The optimised block engine of the white-box cipher, shared by the block
// functions and the modes. It computes exactly the composition of the stage
// functions of wbaes_internal.h.
#ifndef OXCFG_SECURITY_WBAES_BLOCK_H
#define OXCFG_SECURITY_WBAES_BLOCK_H

#include "security/wbaes_internal.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace OxConfigMgr {
namespace wbaes {

// Layouts of one direction's tables that the vector engine derives for its
// lookups (defined with it). Key-independent: the linked-in table set's are
// built once per process and direction; any other set gets its own per call.
struct DerivedTables;
struct DerivedTablesDeleter {
  void operator()(DerivedTables* d) const;
};

// Round keys bound to one direction's key-mixing tables, built once per call
// so that no block repeats the work. Lives on the caller's stack; wipe it
// (WipePreparedKey) before returning.
struct PreparedKey {
  // Offset of the row of table II (VI for the last key) selected by the high
  // and low nibble of round-key byte (j, p): 256p + nibble.
  alignas(64) std::uint32_t hiOffset[kMaxRounds + 1][16];
  alignas(64) std::uint32_t loOffset[kMaxRounds + 1][16];
  // Vector engine only: the same selection applied in advance, positions in
  // column order (RowSlot): rows[j][0][RowSlot(p)][a] = entry (a * 16 + key
  // high nibble) of position p's table, high nibble kept in place;
  // rows[j][1][RowSlot(p)][a] = entry (a * 16 + key low nibble), high nibble
  // moved down. Key mixing of a state byte s is then
  // rows[j][0][slot][s >> 4] | rows[j][1][slot][s & 15], and the four
  // positions of a column are 64 contiguous bytes.
  alignas(64) std::uint8_t rows[kMaxRounds + 1][2][16][16];
  int rounds;
  // Vector engine only: the derived tables of `tables`, and the copy this
  // key owns when they are not the linked-in set. Key-independent, not wiped.
  const DerivedTables* derived;
  std::unique_ptr<DerivedTables, DerivedTablesDeleter> ownDerived;
};

// Where position p = 4r + c sits in PreparedKey::rows: column by column.
constexpr int RowSlot(int p) { return 4 * (p & 3) + (p >> 2); }

// `roundKeys`: rounds + 1 row-major round keys as init_key unpacks them.
// rounds must be 1..kMaxRounds (not checked). When the vector engine can run
// here, also builds the key rows and resolves the derived tables; should
// memory for those be short, the key is set up for the portable engine,
// which then serves every engine choice.
void PrepareKey(const WbAesDirTables& tables, const std::uint8_t* roundKeys, int rounds,
                PreparedKey* key);
// Wipes the key-dependent parts.
void WipePreparedKey(PreparedKey* key);

// Implementations of the block engine; all give identical results.
enum class Engine {
  kAuto,      // the fastest one this processor runs
  kPortable,  // plain C++, any processor
  kAvx512,    // x86-64 with AVX-512 F/BW/VL/VBMI: runs of blocks are
              // processed 64 at a time with in-register table lookups,
              // single blocks through tables III and IV fused
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

// CBC enciphering of `blocks` blocks: block b is enciphered from in[b] XOR
// the previous output block, `iv` for the first. `in` and `out` may be the
// same buffer; `iv` may be the output block just before `out`.
void EncipherChain(const WbAesDirTables& tables, const PreparedKey& key, const std::uint8_t* iv,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks,
                   Engine engine = Engine::kAuto);

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define OXCFG_WBAES_HAVE_AVX512 1
// Defined in wbaes_block_avx512.cpp; callers check the processor first.
bool CpuHasAvx512Engine();
// Resolves (or builds) the derived tables and builds the key rows; leaves
// key->derived null when memory for the tables is short.
void PrepareAvx512(const WbAesDirTables& tables, PreparedKey* key);
void ProcessBlocksAvx512(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
void EncipherChainAvx512(const WbAesDirTables& tables, const PreparedKey& key,
                         const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                         std::size_t blocks);
#endif

}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_SECURITY_WBAES_BLOCK_H

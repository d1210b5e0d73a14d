// The block engine's shared part: the derived tables, the per-call key, the
// portable engine and the dispatch between engines. Every engine gives the
// result of ReferenceBlock (wbaes_stages.cpp), stage for stage; what changes
// is how the lookups are laid out:
//  - the key rows of tables II/VI are selected once per call (PreparedKey);
//  - tables III and IV are fused once per table set (DerivedTables), so a
//    combining step of table IV is one byte load whose address is the
//    previous step's result, and the row shift is folded into which state
//    byte indexes which position's lines;
//  - the lines are biased so that the last step's result indexes the key row
//    of the next round directly.
// All loops have fixed trip counts; nothing branches on key or data.
#include "security/wbaes_block.h"

#include "platform/secure_wipe.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

namespace OxConfigMgr {
namespace wbaes {
namespace {

// ---- derived tables -------------------------------------------------------------------

// Rows of 16 entries of `table` (`rows` of them: 8 or 16) in the sliced
// form of DerivedTables: within each run of 8 rows, row h XOR row h + 1,
// the run's last row as it is.
void SliceRows(const std::uint8_t* table, int rows, std::uint8_t (*out)[16]) {
  for (int h = 0; h < rows; ++h) {
    const bool last = h % 8 == 7;
    for (int e = 0; e < 16; ++e) {
      out[h][e] = static_cast<std::uint8_t>(table[16 * h + e] ^ (last ? 0 : table[16 * h + 16 + e]));
    }
  }
}

// A combining table f (f[a][b]: partial nibble a, accumulator nibble b) as
// out(x[a] ^ y[b]) for 4-bit bijections x, y, out. Such a split exists
// exactly when f is an isotope of nibble XOR; then the results f gives on
// row 0 and column 0 form a group with the XOR's structure, and out is an
// isomorphism onto it, built from a basis. Returns false when f has no such
// split (every entry is checked at the end).
bool SplitXor(const std::uint8_t (&f)[16][16], std::uint8_t (&x)[16], std::uint8_t (&y)[16],
              std::uint8_t (&out)[16]) {
  int rowOf[16], colOf[16];  // rowOf[s]: the a with f[a][0] = s; colOf: the b with f[0][b] = s
  for (int s = 0; s < 16; ++s) rowOf[s] = colOf[s] = -1;
  for (int i = 0; i < 16; ++i) {
    if (rowOf[f[i][0]] >= 0 || colOf[f[0][i]] >= 0) return false;
    rowOf[f[i][0]] = i;
    colOf[f[0][i]] = i;
  }
  auto times = [&](int s, int t) { return f[rowOf[s]][colOf[t]]; };
  int inv[16];
  for (int s = 0; s < 16; ++s) inv[s] = -1;
  out[0] = f[0][0];
  inv[out[0]] = 0;
  for (int span = 1; span < 16; span *= 2) {
    int g = 0;
    while (inv[g] >= 0) ++g;
    for (int v = 0; v < span; ++v) {
      const int s = times(out[v], g);
      if (inv[s] >= 0) return false;
      out[span + v] = static_cast<std::uint8_t>(s);
      inv[s] = span + v;
    }
  }
  for (int i = 0; i < 16; ++i) {
    x[i] = static_cast<std::uint8_t>(inv[f[i][0]]);
    y[i] = static_cast<std::uint8_t>(inv[f[0][i]]);
  }
  for (int a = 0; a < 16; ++a) {
    for (int b = 0; b < 16; ++b) {
      if (f[a][b] != out[x[a] ^ y[b]]) return false;
    }
  }
  return true;
}

// z as l(u) ^ c with l linear over GF(2); false when z is not affine.
bool SplitAffine(const std::uint8_t (&z)[16], std::uint8_t (&l)[16], std::uint8_t& c) {
  c = z[0];
  for (int u = 0; u < 16; ++u) l[u] = static_cast<std::uint8_t>(z[u] ^ c);
  for (int u = 0; u < 16; ++u) {
    for (int w = 0; w < 16; ++w) {
      if (l[u ^ w] != (l[u] ^ l[w])) return false;
    }
  }
  return true;
}

// The three combining steps of output q's nibble half as one sum: `f[st]`
// is do_xor of step st; on success the result of the steps is
// out(dec[0][n0] ^ dec[1][n1] ^ dec[2][n2] ^ dec[3][n3]) for partial
// nibbles n0..n3. Working back from the last step, the decoding of the
// accumulator composed with the step before's encoding is affine, so its
// linear part moves onto that step's decodings and its constant onto the
// partial's.
bool SumOfSteps(const std::uint8_t (&f)[3][16][16], std::uint8_t (&dec)[4][16],
                std::uint8_t (&out)[16]) {
  std::uint8_t x[3][16], y[3][16], o[3][16];
  for (int st = 0; st < 3; ++st) {
    if (!SplitXor(f[st], x[st], y[st], o[st])) return false;
  }
  std::uint8_t acc[16];  // decoding of the accumulator entering the step
  std::memcpy(dec[3], x[2], 16);
  std::memcpy(acc, y[2], 16);
  for (int st = 1; st >= 0; --st) {
    std::uint8_t z[16], l[16], c;
    for (int u = 0; u < 16; ++u) z[u] = acc[o[st][u]];
    if (!SplitAffine(z, l, c)) return false;
    for (int n = 0; n < 16; ++n) {
      dec[st + 1][n] = static_cast<std::uint8_t>(l[x[st][n]] ^ c);
      acc[n] = l[y[st][n]];
    }
  }
  std::memcpy(dec[0], acc, 16);
  std::memcpy(out, o[2], 16);
  return true;
}

// Returns nullptr when memory is short.
DerivedTables* NewDerived(const WbAesDirTables& t) {
  std::unique_ptr<DerivedTables> d(new (std::nothrow) DerivedTables);
  // results[q][step][half][a][b] = do_xor(a, b) on the packed table of
  // output q, step `step`, nibble half `half`.
  struct Results {
    std::uint8_t v[16][3][2][16][16];
  };
  const std::unique_ptr<Results> res(new (std::nothrow) Results);
  if (d == nullptr || res == nullptr) return nullptr;
  for (int q = 0; q < 16; ++q) {
    for (int st = 0; st < 3; ++st) {
      for (int half = 0; half < 2; ++half) {
        const std::uint8_t* packed = t.IV + 256 * (3 * q + st) + 128 * half;
        for (int a = 0; a < 16; ++a) {
          for (int b = 0; b < 16; ++b) {
            res->v[q][st][half][a][b] =
                do_xor(static_cast<std::uint8_t>(a), static_cast<std::uint8_t>(b), packed);
          }
        }
      }
    }
  }
  // dec[q][half][r]: partial r's decoding in output q's sum (zeros, unused,
  // when the set has no sums).
  struct SumDecodings {
    std::uint8_t v[16][2][4][16];
  };
  const std::unique_ptr<SumDecodings> dec(new (std::nothrow) SumDecodings());
  if (dec == nullptr) return nullptr;
  d->hasFourthSum = true;
  for (int q = 0; q < 16; ++q) {
    for (int half = 0; half < 2; ++half) {
      std::uint8_t f[3][16][16];
      for (int st = 0; st < 3; ++st) std::memcpy(f[st], res->v[q][st][half], sizeof f[st]);
      d->hasFourthSum =
          d->hasFourthSum && SumOfSteps(f, dec->v[q][half], d->fourthOut[q][half]);
    }
  }
  for (int p = 0; p < 16; ++p) {
    const int r = p >> 2;
    const int c = p & 3;
    for (int x = 0; x < 256; ++x) {
      for (int i = 0; i < 4; ++i) {
        const std::uint8_t partial = t.III[1024 * p + 4 * x + i];
        d->third[p][i][x] = partial;
        const auto& dq = dec->v[4 * i + c];
        d->thirdSum[p][x][i] =
            static_cast<std::uint8_t>(dq[0][r][partial >> 4] << 4 | dq[1][r][partial & 15]);
        const int hi = partial >> 4;
        const int lo = partial & 15;
        d->thirdWords[p][x][i] = static_cast<std::uint8_t>(
            r == 0 ? partial : (hi >> 1) << 4 | (hi & 1) << 7 | lo >> 1 | (lo & 1) << 3);
        const std::uint8_t bias = static_cast<std::uint8_t>(16 * i);
        if (r == 0) {
          d->start[c][x][i] = static_cast<std::uint8_t>(bias + (partial >> 4));
          d->start[c][x][4 + i] = static_cast<std::uint8_t>(bias + (partial & 15));
          continue;
        }
        const int q = 4 * i + c;
        const int nibble[2] = {partial >> 4, partial & 15};
        for (int half = 0; half < 2; ++half) {
          const std::uint8_t* line = res->v[q][r - 1][half][nibble[half]];
          std::uint8_t* dst = &d->lines[p - 4][x][half][16 * i];
          for (int b = 0; b < 16; ++b) dst[b] = static_cast<std::uint8_t>(bias + line[b]);
        }
      }
    }
    for (int k = 0; k < 16; ++k) {
      for (int a = 0; a < 16; ++a) {
        d->keyLines[0][p][k][a] = t.II[256 * p + 16 * a + k];
        d->keyLines[1][p][k][a] = t.VI[256 * p + 16 * a + k];
      }
    }
    SliceRows(t.V + 256 * p, 16, d->slicedFifth[p]);
  }
  for (int q = 0; q < 16; ++q) {
    for (int st = 0; st < 3; ++st) {
      for (int half = 0; half < 2; ++half) {
        std::uint8_t v[128];
        const auto& f = res->v[q][st][half];
        for (int j = 0; j < 8; ++j) {
          for (int b = 0; b < 16; ++b) {
            v[16 * j + b] = static_cast<std::uint8_t>(f[2 * j][b] | f[2 * j + 1][b] << 4);
          }
        }
        SliceRows(v, 8, d->slicedFourth[q][st][half]);
      }
    }
  }
  return d.release();
}

// The linked-in set's derived tables, built once per process and direction
// on first use (a failed allocation is retried by the next call) and never
// freed; the table pointers identify the set because its tables are
// immutable static data.
struct LinkedCache {
  std::mutex mutex;
  std::atomic<const DerivedTables*> tables{nullptr};
};
LinkedCache gLinkedEnc;
LinkedCache gLinkedDec;

const DerivedTables* LinkedDerived(const WbAesDirTables& t) {
  auto same = [&t](const WbAesDirTables& o) {
    return t.I == o.I && t.II == o.II && t.III == o.III && t.IV == o.IV && t.V == o.V &&
           t.VI == o.VI;
  };
  LinkedCache* cache = same(kProductionTables.enc)   ? &gLinkedEnc
                       : same(kProductionTables.dec) ? &gLinkedDec
                                                     : nullptr;
  if (cache == nullptr) return nullptr;
  const DerivedTables* d = cache->tables.load(std::memory_order_acquire);
  if (d != nullptr) return d;
  std::lock_guard<std::mutex> lock(cache->mutex);
  d = cache->tables.load(std::memory_order_relaxed);
  if (d == nullptr) {
    d = NewDerived(t);
    cache->tables.store(d, std::memory_order_release);
  }
  return d;
}

// ---- portable engine ------------------------------------------------------------------

// Column c's four outputs of one inner round, key-mixed with the next round
// key's rows into mixed. Each step is a byte load: a biased result indexes
// the same output's next line, then its key row. The lines (about 400 KiB
// in all) mostly come from L2; their addresses are known before the first
// step, so the later steps' lines are fetched while the first is awaited
// instead of one after another (16 KiB ECB 1.17x, CBC enciphering 1.08x).
inline void ColumnScalar(const ColumnLines& l, const std::uint8_t (&rows)[2][16][16], int c,
                         std::uint8_t* mixed) {
  for (int s = 1; s < 3; ++s) {
    __builtin_prefetch(l.step[s][0]);
    __builtin_prefetch(l.step[s][1]);
  }
  for (int i = 0; i < 4; ++i) {
    std::uint8_t part[2];
    for (int h = 0; h < 2; ++h) {
      const std::uint8_t* row = rows[h][4 * c];  // the column's 64 bytes
      part[h] = row[l.step[2][h][l.step[1][h][l.step[0][h][l.start[4 * h + i]]]]];
    }
    mixed[i] = static_cast<std::uint8_t>(part[0] | part[1]);
  }
}

// One block through the derived tables; with kChained, the block processed
// is in XOR chain.
template <bool kDecipher, bool kChained>
void Block(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
           const std::uint8_t* chain, std::uint8_t* out) {
  std::uint8_t state[2][16];  // key-mixed state of this round and the next
  EnterBlock<kChained>(t, k, in, chain, state[0]);
  int cur = 0;
  for (int j = 0; j + 1 < k.rounds; ++j, cur ^= 1) {
    for (int c = 0; c < 4; ++c) {
      ColumnScalar(SelectColumn<kDecipher>(*k.derived, state[cur], c), k.rows[j + 1], c,
                   state[cur ^ 1] + 4 * c);
    }
  }
  LeaveBlock<kDecipher>(t, k, state[cur], out);
}

// Independent blocks handled together by the portable engine. A single
// block's round is a few dependent loads per output, and the next round
// cannot start before all of them land; with several blocks in the same
// loop an out-of-order core overlaps one block's rounds with another's.
// Measured on x86-64 (16 KiB ECB, without the prefetch): 4 blocks 1.16x,
// 8 blocks 1.22x the one-block speed, 16 no better than 8.
constexpr std::size_t kInterleave = 8;

// N independent blocks, in and out as in ProcessBlocks (all of the group's
// input is read before any of its output is written).
template <bool kDecipher, std::size_t N>
void Group(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
           std::uint8_t* out) {
  std::uint8_t state[2][N][16];
  for (std::size_t n = 0; n < N; ++n) EnterBlock<false>(t, k, in + 16 * n, nullptr, state[0][n]);
  int cur = 0;
  for (int j = 0; j + 1 < k.rounds; ++j, cur ^= 1) {
    for (int c = 0; c < 4; ++c) {
      for (std::size_t n = 0; n < N; ++n) {
        ColumnScalar(SelectColumn<kDecipher>(*k.derived, state[cur][n], c), k.rows[j + 1], c,
                     state[cur ^ 1][n] + 4 * c);
      }
    }
  }
  for (std::size_t n = 0; n < N; ++n) LeaveBlock<kDecipher>(t, k, state[cur][n], out + 16 * n);
}

template <bool kDecipher>
void PortableRun(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                 std::uint8_t* out, std::size_t blocks) {
  for (; blocks >= kInterleave; blocks -= kInterleave, in += 16 * kInterleave,
                                out += 16 * kInterleave) {
    Group<kDecipher, kInterleave>(t, k, in, out);
  }
  for (; blocks >= 2; blocks -= 2, in += 32, out += 32) Group<kDecipher, 2>(t, k, in, out);
  if (blocks == 1) Block<kDecipher, false>(t, k, in, nullptr, out);
}

// Without derived tables: one block through the stage functions.
void Reference(const WbAesDirTables& t, bool decipher, const PreparedKey& k,
               const std::uint8_t* in, const std::uint8_t* chain, std::uint8_t* out) {
  std::uint8_t block[kBlockSize];
  for (std::size_t i = 0; i < kBlockSize; ++i) {
    block[i] = static_cast<std::uint8_t>(chain != nullptr ? in[i] ^ chain[i] : in[i]);
  }
  ReferenceBlock(t, decipher, block, k.roundKeys, k.rounds, out);
  OxBase::SecureWipe(block, sizeof block);
}

}  // namespace

void PrepareKey(const WbAesDirTables& tables, const std::uint8_t* roundKeys, int rounds,
                PreparedKey* key) {
  key->rounds = rounds;
  std::memcpy(key->roundKeys, roundKeys, 16 * static_cast<std::size_t>(rounds + 1));
  key->derived = LinkedDerived(tables);
  if (key->derived == nullptr) {
    key->ownDerived.reset(NewDerived(tables));
    key->derived = key->ownDerived.get();
  }
  if (key->derived == nullptr) return;
  for (int j = 0; j <= rounds; ++j) {
    const int table = j < rounds ? 0 : 1;
    for (int p = 0; p < 16; ++p) {
      const std::uint8_t kb = roundKeys[16 * j + p];
      const std::uint8_t* hi = key->derived->keyLines[table][p][kb >> 4];
      const std::uint8_t* lo = key->derived->keyLines[table][p][kb & 15];
      // Eight entries per 64-bit word; the shift moves no bit across a
      // byte that the mask keeps.
      for (int w = 0; w < 16; w += 8) {
        std::uint64_t h;
        std::uint64_t l;
        std::memcpy(&h, hi + w, sizeof h);
        std::memcpy(&l, lo + w, sizeof l);
        h &= 0xF0F0F0F0F0F0F0F0ull;
        l = (l >> 4) & 0x0F0F0F0F0F0F0F0Full;
        std::memcpy(key->rows[j][0][RowSlot(p)] + w, &h, sizeof h);
        std::memcpy(key->rows[j][1][RowSlot(p)] + w, &l, sizeof l);
      }
    }
  }
}

void WipePreparedKey(PreparedKey* key) {
  // Some 8 KiB per call, wiped at memset speed.
  OxBase::SecureWipe(key->roundKeys, sizeof key->roundKeys);
  OxBase::SecureWipe(key->rows, sizeof key->rows);
}

bool EngineAvailable(Engine engine) {
  switch (engine) {
    case Engine::kAuto:
    case Engine::kPortable: return true;
    case Engine::kAvx2:
#ifdef OXCFG_WBAES_HAVE_AVX2
      return CpuHasAvx2Engine();
#else
      return false;
#endif
    case Engine::kAvx512:
#ifdef OXCFG_WBAES_HAVE_AVX512
      return CpuHasAvx512Engine();
#else
      return false;
#endif
  }
  return false;
}

namespace {

// What kAuto stands for; kAuto here means "by processor". Relaxed: tests
// and benchmarks set it before any call they measure.
std::atomic<Engine> gForced{Engine::kAuto};

Engine BestAvailable() {
  static const Engine best = EngineAvailable(Engine::kAvx512) ? Engine::kAvx512
                             : EngineAvailable(Engine::kAvx2) ? Engine::kAvx2
                                                              : Engine::kPortable;
  return best;
}

}  // namespace

Engine SelectedEngine() {
  const Engine forced = gForced.load(std::memory_order_relaxed);
  return forced != Engine::kAuto ? forced : BestAvailable();
}

const char* EngineName(Engine engine) {
  switch (engine) {
    case Engine::kAuto: return "auto";
    case Engine::kPortable: return "portable";
    case Engine::kAvx2: return "avx2";
    case Engine::kAvx512: return "avx512";
  }
  return "unknown";
}

bool ForceEngine(Engine engine) {
  if (!EngineAvailable(engine)) return false;
  gForced.store(engine, std::memory_order_relaxed);
  return true;
}

namespace {

// Independent blocks (iv null) or a CBC chain from iv, on the engine asked
// for; the stage functions when the key has no derived tables.
void Dispatch(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
              const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
              std::size_t blocks, Engine engine) {
  if (key.derived == nullptr) {
    // Block b's chaining input: none, the IV, or the output block before it.
    for (std::size_t b = 0; b < blocks; ++b) {
      const std::uint8_t* chain = iv == nullptr ? nullptr : b == 0 ? iv : out + 16 * (b - 1);
      Reference(tables, decipher, key, in + 16 * b, chain, out + 16 * b);
    }
    return;
  }
  if (engine == Engine::kAuto) engine = SelectedEngine();
  switch (engine) {
#ifdef OXCFG_WBAES_HAVE_AVX512
    case Engine::kAvx512:
      if (iv != nullptr) {
        EncipherChainAvx512(tables, key, iv, in, out, blocks);
      } else {
        ProcessBlocksAvx512(tables, decipher, key, in, out, blocks);
      }
      return;
#endif
#ifdef OXCFG_WBAES_HAVE_AVX2
    case Engine::kAvx2:
      if (iv != nullptr) {
        EncipherChainAvx2(tables, key, iv, in, out, blocks);
      } else {
        ProcessBlocksAvx2(tables, decipher, key, in, out, blocks);
      }
      return;
#endif
    default: break;
  }
  if (iv != nullptr) {
    ChainBlocks<Block<false, true>>(tables, key, iv, in, out, blocks);
  } else {
    RunDirection<PortableRun<false>, PortableRun<true>>(decipher, tables, key, in, out, blocks);
  }
}

}  // namespace

void ProcessBlocks(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks, Engine engine) {
  Dispatch(tables, decipher, key, nullptr, in, out, blocks, engine);
}

void EncipherChain(const WbAesDirTables& tables, const PreparedKey& key, const std::uint8_t* iv,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks, Engine engine) {
  Dispatch(tables, false, key, iv, in, out, blocks, engine);
}

int ProcessBlock(const WbAesDirTables& tables, bool decipher, const std::uint8_t* in,
                 const std::uint8_t* roundKeys, int rounds, std::uint8_t* out) {
  if (in == nullptr || roundKeys == nullptr || out == nullptr) return kErrNullPointer;
  if (rounds < 1 || rounds > static_cast<int>(kMaxRounds)) return kErrKeySize;
  PreparedKey key;
  PrepareKey(tables, roundKeys, rounds, &key);
  ProcessBlocks(tables, decipher, key, in, out, 1);
  WipePreparedKey(&key);
  return kOk;
}

}  // namespace wbaes
}  // namespace OxConfigMgr

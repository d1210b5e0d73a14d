// wbaes_gen: writes the white-box cipher's table sets as C++ source.
//
//   wbaes_gen [--seed N] <production-dir> <test-dir>
//
// writes <production-dir>/wbaes_tables.cpp (the set linked into the library,
// with the enciphering and deciphering key material of a fixed 256-bit key)
// and <test-dir>/wbaes_test_tables.cpp (the set linked into the unit tests,
// with a key-material template that tests fill with any key's round keys).
// The output depends on the seed alone: the committed files are reproduced
// byte for byte by running the tool again with the default seed.
//
// How the tables hide the cipher. Every state byte travels encoded: at each
// state position p both nibbles go through the same random 4-bit bijection,
// and a table reading position p always expects the encoding that the table
// writing it used. The chain per direction is
//
//   input --I--> E --II(key)--> F --row shift--> III --> P (partials)
//         --IV--> A --IV--> A --IV--> E      (inner rounds, back to II)
//   last round:  F --row shift--> V --> H --VI(key)--> output
//
// E, F and H are per-position encodings, P and A per output position,
// partial and nibble half. Because the same tables serve every round, E is
// both what table I produces and what table IV produces. Round keys are never
// encoded: tables II and VI take a clear key nibble beside an encoded state
// nibble, so one table set works with any key material.
//
// The external encodings (what table I expects and table VI produces) are
// random per position in the production set, so its enciphering function is
// AES wrapped in secret byte encodings; the deciphering tables use the same
// two encodings swapped, so deciphering inverts it. The test set uses
// identity external encodings (its internal encodings stay random), so its
// blocks are plain AES and can be checked against any AES implementation.
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The committed seed. Changing it changes every table and the production
// key: data enciphered by earlier builds can then no longer be read.
constexpr std::uint64_t kCommittedSeed = 0x6f78636667776261ULL;

constexpr std::size_t kKeyMaterialSize = 244;

// ---- deterministic random numbers ---------------------------------------------

std::uint64_t SplitMix64(std::uint64_t& state) {
  std::uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

// xoshiro256**, seeded through splitmix64.
class Rng {
 public:
  explicit Rng(std::uint64_t seed) {
    for (auto& w : s_) w = SplitMix64(seed);
  }
  std::uint64_t Next() {
    const std::uint64_t result = Rotl(s_[1] * 5, 7) * 9;
    const std::uint64_t t = s_[1] << 17;
    s_[2] ^= s_[0];
    s_[3] ^= s_[1];
    s_[1] ^= s_[2];
    s_[0] ^= s_[3];
    s_[2] ^= t;
    s_[3] = Rotl(s_[3], 45);
    return result;
  }
  // Uniform in [0, n), by rejection (no modulo bias).
  unsigned Below(unsigned n) {
    const std::uint64_t limit = UINT64_MAX - UINT64_MAX % n;
    std::uint64_t v;
    do v = Next();
    while (v >= limit);
    return static_cast<unsigned>(v % n);
  }
  std::uint8_t Byte() { return static_cast<std::uint8_t>(Next() >> 56); }
  std::uint8_t NonZeroByte() { return static_cast<std::uint8_t>(1 + Below(255)); }

 private:
  static std::uint64_t Rotl(std::uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
  std::uint64_t s_[4];
};

// A bijection of 4-bit values with its inverse.
struct Nibble {
  std::array<std::uint8_t, 16> f;
  std::array<std::uint8_t, 16> inv;

  static Nibble Identity() {
    Nibble n;
    for (unsigned i = 0; i < 16; ++i) n.f[i] = n.inv[i] = static_cast<std::uint8_t>(i);
    return n;
  }
  static Nibble Random(Rng& rng) {
    Nibble n = Identity();
    for (unsigned i = 15; i > 0; --i) std::swap(n.f[i], n.f[rng.Below(i + 1)]);
    for (unsigned i = 0; i < 16; ++i) n.inv[n.f[i]] = static_cast<std::uint8_t>(i);
    return n;
  }
  // Both nibbles of a byte through the same bijection.
  std::uint8_t EncodeByte(std::uint8_t b) const {
    return static_cast<std::uint8_t>((f[b >> 4] << 4) | f[b & 15]);
  }
  std::uint8_t DecodeByte(std::uint8_t b) const {
    return static_cast<std::uint8_t>((inv[b >> 4] << 4) | inv[b & 15]);
  }
};

// ---- the cipher's arithmetic ---------------------------------------------------

std::uint8_t GfMul(std::uint8_t a, std::uint8_t b) {
  std::uint8_t p = 0;
  while (b != 0) {
    if (b & 1) p ^= a;
    a = static_cast<std::uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1b : 0));
    b >>= 1;
  }
  return p;
}

struct SBoxes {
  std::array<std::uint8_t, 256> fwd;
  std::array<std::uint8_t, 256> inv;
  SBoxes() {
    for (unsigned x = 0; x < 256; ++x) {
      // Multiplicative inverse as x^254, then the affine map.
      std::uint8_t y = 1;
      for (int i = 0; i < 254; ++i) y = GfMul(y, static_cast<std::uint8_t>(x));
      if (x == 0) y = 0;
      std::uint8_t s = 0x63;
      for (int i = 0; i < 5; ++i) {
        s ^= static_cast<std::uint8_t>((y << i) | (y >> ((8 - i) & 7)));
      }
      fwd[x] = s;
      inv[s] = static_cast<std::uint8_t>(x);
    }
  }
};

const SBoxes& Boxes() {
  static const SBoxes boxes;
  return boxes;
}

// Expanded key: 16 * (rounds + 1) bytes, round key b column by column.
std::vector<std::uint8_t> ExpandKey(const std::uint8_t* key, int bits) {
  const int nk = bits / 32;
  const int rounds = nk + 6;
  const int words = 4 * (rounds + 1);
  std::vector<std::uint8_t> w(4 * static_cast<std::size_t>(words));
  std::memcpy(w.data(), key, 4 * static_cast<std::size_t>(nk));
  std::uint8_t rcon = 1;
  for (int i = nk; i < words; ++i) {
    std::uint8_t t[4];
    std::memcpy(t, &w[4 * (i - 1)], 4);
    if (i % nk == 0) {
      const std::uint8_t t0 = t[0];
      t[0] = static_cast<std::uint8_t>(Boxes().fwd[t[1]] ^ rcon);
      t[1] = Boxes().fwd[t[2]];
      t[2] = Boxes().fwd[t[3]];
      t[3] = Boxes().fwd[t0];
      rcon = GfMul(rcon, 2);
    } else if (nk > 6 && i % nk == 4) {
      for (auto& b : t) b = Boxes().fwd[b];
    }
    for (int j = 0; j < 4; ++j)
      w[4 * i + j] = static_cast<std::uint8_t>(w[4 * (i - nk) + j] ^ t[j]);
  }
  return w;
}

void InvMixColumns(std::uint8_t* roundKey) {
  for (int c = 0; c < 4; ++c) {
    std::uint8_t* col = roundKey + 4 * c;
    std::uint8_t out[4];
    for (int i = 0; i < 4; ++i) {
      out[i] = static_cast<std::uint8_t>(GfMul(col[i], 14) ^ GfMul(col[(i + 1) & 3], 11) ^
                                         GfMul(col[(i + 2) & 3], 13) ^ GfMul(col[(i + 3) & 3], 9));
    }
    std::memcpy(col, out, 4);
  }
}

// ---- tables ----------------------------------------------------------------------

struct DirTables {
  std::vector<std::uint8_t> I = std::vector<std::uint8_t>(256);
  std::vector<std::uint8_t> II = std::vector<std::uint8_t>(4096);
  std::vector<std::uint8_t> III = std::vector<std::uint8_t>(16384);
  std::vector<std::uint8_t> IV = std::vector<std::uint8_t>(12288);
  std::vector<std::uint8_t> V = std::vector<std::uint8_t>(4096);
  std::vector<std::uint8_t> VI = std::vector<std::uint8_t>(4096);
};

// Key mixing: (encoded nibble a, clear key nibble k) -> encoded nibble in the
// high half; the low half is noise and never read.
void FillKeyTable(std::uint8_t* t, const Nibble& in, const Nibble& out, Rng& rng) {
  for (unsigned a = 0; a < 16; ++a) {
    for (unsigned k = 0; k < 16; ++k) {
      const std::uint8_t noise = static_cast<std::uint8_t>(rng.Below(16));
      t[a * 16 + k] = static_cast<std::uint8_t>((out.f[in.inv[a] ^ k] << 4) | noise);
    }
  }
}

// One 128-byte packed nibble table: U(a * 16 + b) = out(x(a) ^ y(b)), where
// a is read through `x` and b through `y`; entry j holds U(j) in its low half
// and U(j + 128) in its high half.
void FillXorTable(std::uint8_t* t, const Nibble& x, const Nibble& y, const Nibble& out) {
  std::uint8_t u[256];
  for (unsigned a = 0; a < 16; ++a) {
    for (unsigned b = 0; b < 16; ++b) u[a * 16 + b] = out.f[x.inv[a] ^ y.inv[b]];
  }
  for (unsigned j = 0; j < 128; ++j) t[j] = static_cast<std::uint8_t>(u[j] | (u[j + 128] << 4));
}

DirTables MakeDirection(bool decipher, const std::array<Nibble, 16>& inExt,
                        const std::array<Nibble, 16>& outExt, Rng& rng) {
  std::array<Nibble, 16> E, F, H;
  for (auto& n : E) n = Nibble::Random(rng);
  for (auto& n : F) n = Nibble::Random(rng);
  for (auto& n : H) n = Nibble::Random(rng);
  // P[q][k][half]: partial k of output q; A[q][s][half]: the accumulator
  // after combining step s - 1 (A[q][0] is unused: step 0 starts from P[q][0]).
  Nibble P[16][4][2];
  Nibble A[16][3][2];
  for (auto& q : P)
    for (auto& k : q)
      for (auto& h : k) h = Nibble::Random(rng);
  for (auto& q : A)
    for (auto& s : q)
      for (auto& h : s) h = Nibble::Random(rng);

  const std::array<std::uint8_t, 256>& sub = decipher ? Boxes().inv : Boxes().fwd;
  static const std::uint8_t kMix[4] = {2, 3, 1, 1};
  static const std::uint8_t kInvMix[4] = {14, 11, 13, 9};
  const std::uint8_t* mix = decipher ? kInvMix : kMix;
  // The byte at (r, c) after the row shift came from (r, source column).
  auto source = [decipher](int r, int c) { return 4 * r + ((decipher ? c - r : c + r) & 3); };

  DirTables t;
  for (int p = 0; p < 16; ++p) {
    for (unsigned n = 0; n < 16; ++n) t.I[16 * p + n] = E[p].f[inExt[p].inv[n]];
    FillKeyTable(&t.II[256 * p], E[p], F[p], rng);
    FillKeyTable(&t.VI[256 * p], H[p], outExt[p], rng);
  }
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      const int p = 4 * r + c;
      const Nibble& in = F[source(r, c)];
      for (unsigned x = 0; x < 256; ++x) {
        const std::uint8_t s = sub[in.DecodeByte(static_cast<std::uint8_t>(x))];
        t.V[256 * p + x] = H[p].EncodeByte(s);
        for (int i = 0; i < 4; ++i) {
          const int q = 4 * i + c;
          const std::uint8_t m = GfMul(s, mix[(r - i) & 3]);
          t.III[4 * (256 * p + x) + i] =
              static_cast<std::uint8_t>((P[q][r][0].f[m >> 4] << 4) | P[q][r][1].f[m & 15]);
        }
      }
    }
  }
  for (int q = 0; q < 16; ++q) {
    for (int s = 0; s < 3; ++s) {
      for (int h = 0; h < 2; ++h) {
        const Nibble& acc = s == 0 ? P[q][0][h] : A[q][s][h];
        const Nibble& out = s == 2 ? E[q] : A[q][s + 1][h];
        FillXorTable(&t.IV[256 * (3 * q + s) + 128 * h], P[q][s + 1][h], acc, out);
      }
    }
  }
  return t;
}

struct TableSet {
  DirTables enc;
  DirTables dec;
};

TableSet MakeSet(bool identityExternal, Rng& rng) {
  std::array<Nibble, 16> inExt, outExt;
  for (int p = 0; p < 16; ++p) {
    inExt[p] = identityExternal ? Nibble::Identity() : Nibble::Random(rng);
    outExt[p] = identityExternal ? Nibble::Identity() : Nibble::Random(rng);
  }
  TableSet set;
  set.enc = MakeDirection(false, inExt, outExt, rng);
  set.dec = MakeDirection(true, outExt, inExt, rng);
  return set;
}

// A key-material block: random non-zero mask, noise everywhere else; the
// caller stores round keys over the noise.
std::array<std::uint8_t, kKeyMaterialSize> KeyTemplate(Rng& rng) {
  std::array<std::uint8_t, kKeyMaterialSize> km;
  for (auto& b : km) b = rng.Byte();
  for (int i = 0; i < 3; ++i) km[i] = rng.NonZeroByte();
  return km;
}

// Stores column-major round key `slot` masked into the key material.
void PutRoundKey(std::array<std::uint8_t, kKeyMaterialSize>& km, int slot, const std::uint8_t* rk) {
  for (int j = 0; j < 16; ++j) {
    const int i = 4 + 16 * slot + j;
    km[i] = static_cast<std::uint8_t>(rk[j] ^ km[i % 3]);
  }
}

// ---- output ------------------------------------------------------------------------

class Writer {
 public:
  void Line(const std::string& s) { text_ += s + "\n"; }
  void Array(const char* decl, const std::uint8_t* data, std::size_t n) {
    text_ += decl;
    text_ += " = {\n";
    for (std::size_t i = 0; i < n; i += 16) {
      text_ += "   ";
      for (std::size_t j = i; j < n && j < i + 16; ++j) {
        char buf[8];
        std::snprintf(buf, sizeof buf, " 0x%02x,", data[j]);
        text_ += buf;
      }
      text_ += "\n";
    }
    text_ += "};\n";
  }
  void Tables(const TableSet& set) {
    const char* names[6] = {"I", "II", "III", "IV", "V", "VI"};
    for (int d = 0; d < 2; ++d) {
      const DirTables& t = d == 0 ? set.enc : set.dec;
      const std::vector<std::uint8_t>* v[6] = {&t.I, &t.II, &t.III, &t.IV, &t.V, &t.VI};
      for (int i = 0; i < 6; ++i) {
        const std::string decl = std::string("alignas(64) const std::uint8_t table_") + names[i] +
                                 (d == 0 ? "" : "_dec") + "[" + std::to_string(v[i]->size()) + "]";
        Array(decl.c_str(), v[i]->data(), v[i]->size());
        Line("");
      }
    }
  }
  bool Save(const std::string& path) const {
    // Written whole to a temporary name, then renamed, so an interrupted run
    // never leaves a truncated source file behind.
    const std::string tmp = path + ".tmp";
    std::FILE* f = std::fopen(tmp.c_str(), "wb");
    if (f == nullptr) {
      std::fprintf(stderr, "wbaes_gen: cannot write %s: %s\n", tmp.c_str(), std::strerror(errno));
      return false;
    }
    const bool ok = std::fwrite(text_.data(), 1, text_.size(), f) == text_.size();
    if (std::fclose(f) != 0 || !ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
      std::fprintf(stderr, "wbaes_gen: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
      std::remove(tmp.c_str());
      return false;
    }
    return true;
  }

 private:
  std::string text_;
};

std::string Header(std::uint64_t seed, const char* what) {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "// %s\n"
                "//\n"
                "// Generated by tools/wbaes_gen with seed 0x%016llx. Do not edit: build the\n"
                "// wbaes_regen target instead. A test checks that the generator reproduces\n"
                "// this file byte for byte.\n"
                "// clang-format off\n",
                what, static_cast<unsigned long long>(seed));
  return buf;
}

bool WriteProduction(const std::string& dir, std::uint64_t seed) {
  Rng rng(seed);
  const TableSet set = MakeSet(false, rng);
  std::uint8_t key[32];
  for (auto& b : key) b = rng.Byte();
  const std::vector<std::uint8_t> rk = ExpandKey(key, 256);
  const int rounds = 14;
  auto enc = KeyTemplate(rng);
  auto dec = KeyTemplate(rng);
  // Deciphering runs the equivalent inverse cipher: round keys in reverse
  // order, the inner ones through InvMixColumns.
  for (int b = 0; b <= rounds; ++b) {
    PutRoundKey(enc, b, &rk[16 * b]);
    std::uint8_t d[16];
    std::memcpy(d, &rk[16 * (rounds - b)], 16);
    if (b != 0 && b != rounds) InvMixColumns(d);
    PutRoundKey(dec, b, d);
  }
  std::memset(key, 0, sizeof key);

  Writer w;
  w.Line(Header(seed, "White-box cipher: the production table set and its key material.").c_str());
  w.Line("#include \"security/wbaes_internal.h\"");
  w.Line("");
  w.Line("namespace OxConfigMgr {");
  w.Line("namespace wbaes {");
  w.Line("namespace {");
  w.Line("");
  w.Tables(set);
  w.Line("}  // namespace");
  w.Line("");
  w.Line("const WbAesTables kProductionTables = {");
  w.Line("    {table_I, table_II, table_III, table_IV, table_V, table_VI},");
  w.Line(
      "    {table_I_dec, table_II_dec, table_III_dec, table_IV_dec, table_V_dec, table_VI_dec}};");
  w.Line("");
  w.Line("// Masked round keys of the production 256-bit key: enciphering order, and");
  w.Line("// the equivalent inverse cipher's order for deciphering.");
  w.Array("const std::uint8_t kProductionKeyEnc[kKeyMaterialSize]", enc.data(), enc.size());
  w.Line("");
  w.Array("const std::uint8_t kProductionKeyDec[kKeyMaterialSize]", dec.data(), dec.size());
  w.Line("");
  w.Line("}  // namespace wbaes");
  w.Line("}  // namespace OxConfigMgr");
  return w.Save(dir + "/wbaes_tables.cpp");
}

bool WriteTestSet(const std::string& dir, std::uint64_t seed) {
  // A stream of its own, so the two sets share nothing.
  Rng rng(seed ^ 0x7465737473657421ULL);
  const TableSet set = MakeSet(true, rng);
  const auto keyTemplate = KeyTemplate(rng);

  Writer w;
  w.Line(Header(seed,
                "White-box cipher: the test table set (identity external encodings, so\n"
                "// its blocks are plain AES). Linked into the unit tests only.")
             .c_str());
  w.Line("#include \"security/wbaes_internal.h\"");
  w.Line("#include \"security/wbaes_test_support.h\"");
  w.Line("");
  w.Line("namespace OxConfigMgr {");
  w.Line("namespace wbaes {");
  w.Line("namespace testset {");
  w.Line("namespace {");
  w.Line("");
  w.Tables(set);
  w.Line("}  // namespace");
  w.Line("");
  w.Line("const WbAesTables kTables = {");
  w.Line("    {table_I, table_II, table_III, table_IV, table_V, table_VI},");
  w.Line(
      "    {table_I_dec, table_II_dec, table_III_dec, table_IV_dec, table_V_dec, table_VI_dec}};");
  w.Line("");
  w.Line("// Mask in bytes 0..2, noise elsewhere; round keys are stored over the noise.");
  w.Array("const std::uint8_t kKeyTemplate[kKeyMaterialSize]", keyTemplate.data(),
          keyTemplate.size());
  w.Line("");
  w.Line("}  // namespace testset");
  w.Line("}  // namespace wbaes");
  w.Line("}  // namespace OxConfigMgr");
  return w.Save(dir + "/wbaes_test_tables.cpp");
}

int Usage() {
  std::fprintf(stderr, "usage: wbaes_gen [--seed N] <production-dir> <test-dir>\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t seed = kCommittedSeed;
  int arg = 1;
  if (arg + 1 < argc && std::strcmp(argv[arg], "--seed") == 0) {
    char* end = nullptr;
    errno = 0;
    seed = std::strtoull(argv[arg + 1], &end, 0);
    if (errno != 0 || end == argv[arg + 1] || *end != '\0') return Usage();
    arg += 2;
  }
  if (argc - arg != 2) return Usage();
  if (!WriteProduction(argv[arg], seed)) return 1;
  if (!WriteTestSet(argv[arg + 1], seed)) return 1;
  return 0;
}

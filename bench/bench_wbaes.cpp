// Throughput of the white-box cipher (production tables, 256-bit key) beside
// OpenSSL's AES-256 on the same buffer sizes: through the engine this
// processor selects (BM_WbAes_*, the engine is named in the context block
// as wbaes_engine), and through each engine in turn (WbAes/<engine>/...;
// engines the processor lacks are reported as skipped).
//
// OpenSSL runs twice: through EVP (BM_OpenSsl_*: AES-NI where the processor
// has it) and through its low-level AES functions (BM_OpenSslTable_*), which
// are its portable table code on any processor, the yardstick the cipher's
// goals are set against. With OPENSSL_ia32cap="~0x200000200000000" in the
// environment EVP takes the table code as well.
#include <oxconfigmgr/OxWbAes.h>

#include "security/wbaes_block.h"
#include "security/wbaes_internal.h"

// The low-level AES functions are deprecated in OpenSSL 3 but still the
// plain table implementation; set before any OpenSSL header.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <benchmark/benchmark.h>
#include <openssl/aes.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using OxConfigMgr::wbaes::kProductionKeyDec;
using OxConfigMgr::wbaes::kProductionKeyEnc;

const unsigned char kIv[16] = {0x10, 0x32, 0x54, 0x76, 0x98, 0xba, 0xdc, 0xfe,
                               0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};

std::vector<unsigned char> Payload(std::size_t n) {
  std::vector<unsigned char> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 131 + 7);
  return v;
}

enum class Op { kCbcEncrypt, kCbcDecrypt, kEcbEncrypt, kEcbDecrypt };

void WbAes(benchmark::State& state, Op op) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  const std::vector<unsigned char> in = Payload(n);
  std::vector<unsigned char> out(n);
  const int len = static_cast<int>(n);
  for (auto _ : state) {
    int outLen = len;
    int rc = 0;
    switch (op) {
      case Op::kCbcEncrypt:
        rc = nyxwbaes_dynamic_cbc_encrypt(in.data(), len, out.data(), &outLen, 256,
                                          kProductionKeyEnc, kIv);
        break;
      case Op::kCbcDecrypt:
        rc = nyxwbaes_dynamic_cbc_decrypt(in.data(), len, out.data(), &outLen, 256,
                                          kProductionKeyDec, kIv);
        break;
      case Op::kEcbEncrypt:
        rc = nyxwbaes_dynamic_ecb_encrypt(in.data(), len, out.data(), &outLen, 256,
                                          kProductionKeyEnc);
        break;
      case Op::kEcbDecrypt:
        rc = nyxwbaes_dynamic_ecb_decrypt(in.data(), len, out.data(), &outLen, 256,
                                          kProductionKeyDec);
        break;
    }
    if (rc != 0) {
      state.SkipWithError("white-box call failed");
      break;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// The same through one engine, forced for the benchmark's duration.
void WbAesOn(benchmark::State& state, OxConfigMgr::wbaes::Engine engine, Op op) {
  using namespace OxConfigMgr::wbaes;
  if (!ForceEngine(engine)) {
    state.SkipWithError((std::string("skipped: this processor has no ") + EngineName(engine) +
                         " engine")
                            .c_str());
    for (auto _ : state) {
    }
    return;
  }
  WbAes(state, op);
  ForceEngine(Engine::kAuto);
}

// OpenSSL AES-256 without padding, one complete init/update/final per
// iteration, as a caller enciphering one buffer at a time would do.
void OpenSsl(benchmark::State& state, const EVP_CIPHER* cipher, bool encrypt) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  const std::vector<unsigned char> in = Payload(n);
  std::vector<unsigned char> out(n + 16);
  const std::vector<unsigned char> key = Payload(32);
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      &EVP_CIPHER_CTX_free);
  for (auto _ : state) {
    int n1 = 0;
    int n2 = 0;
    if (EVP_CipherInit_ex(ctx.get(), cipher, nullptr, key.data(), kIv, encrypt ? 1 : 0) != 1 ||
        EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1 ||
        EVP_CipherUpdate(ctx.get(), out.data(), &n1, in.data(), static_cast<int>(n)) != 1 ||
        EVP_CipherFinal_ex(ctx.get(), out.data() + n1, &n2) != 1) {
      state.SkipWithError("OpenSSL call failed");
      break;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// OpenSSL's table code, key schedule included in every iteration as in
// OpenSsl: CBC through AES_cbc_encrypt, ECB one AES_encrypt per block.
void OpenSslTable(benchmark::State& state, Op op) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  const std::vector<unsigned char> in = Payload(n);
  std::vector<unsigned char> out(n);
  const std::vector<unsigned char> keyBytes = Payload(32);
  for (auto _ : state) {
    AES_KEY key;
    unsigned char iv[16];
    std::memcpy(iv, kIv, sizeof iv);
    if (op == Op::kCbcDecrypt) {
      AES_set_decrypt_key(keyBytes.data(), 256, &key);
      AES_cbc_encrypt(in.data(), out.data(), n, &key, iv, AES_DECRYPT);
    } else {
      AES_set_encrypt_key(keyBytes.data(), 256, &key);
      if (op == Op::kCbcEncrypt) {
        AES_cbc_encrypt(in.data(), out.data(), n, &key, iv, AES_ENCRYPT);
      } else {
        for (std::size_t b = 0; b < n; b += 16) AES_encrypt(in.data() + b, out.data() + b, &key);
      }
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// CBC enciphering of 16 KiB on one engine of the block core, without the
// mode's argument checks and key unpacking.
void BlockChain(benchmark::State& state, OxConfigMgr::wbaes::Engine engine) {
  using namespace OxConfigMgr::wbaes;
  if (!EngineAvailable(engine)) {
    state.SkipWithError("skipped: engine not available on this processor");
    for (auto _ : state) {
    }
    return;
  }
  std::uint8_t roundKeys[kRoundKeyAreaSize];
  init_key(kProductionKeyEnc, 14, roundKeys);
  PreparedKey key;
  PrepareKey(kProductionTables.enc, roundKeys, 14, &key);
  std::vector<unsigned char> buf = Payload(16384);
  for (auto _ : state) {
    EncipherChain(kProductionTables.enc, key, kIv, buf.data(), buf.data(), 1024, engine);
    benchmark::DoNotOptimize(buf.data());
    benchmark::ClobberMemory();
  }
  WipePreparedKey(&key);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 16384);
}

// What the first call of a process pays once per direction: deriving the
// lookup tables. A copy of the production tables is not the linked-in set,
// so every PrepareKey on it derives them anew.
void BM_WbAes_DeriveTables(benchmark::State& state) {
  using namespace OxConfigMgr::wbaes;
  const WbAesDirTables& src = kProductionTables.enc;
  const std::vector<std::uint8_t> I(src.I, src.I + kTableISize), II(src.II, src.II + kTableIISize),
      III(src.III, src.III + kTableIIISize), IV(src.IV, src.IV + kTableIVSize),
      V(src.V, src.V + kTableVSize), VI(src.VI, src.VI + kTableVISize);
  const WbAesDirTables copy = {I.data(), II.data(), III.data(), IV.data(), V.data(), VI.data()};
  std::uint8_t roundKeys[kRoundKeyAreaSize];
  init_key(kProductionKeyEnc, 14, roundKeys);
  for (auto _ : state) {
    PreparedKey key;
    PrepareKey(copy, roundKeys, 14, &key);
    benchmark::DoNotOptimize(key.derived);
    WipePreparedKey(&key);
  }
}

void BM_WbAes_ChainPortable(benchmark::State& s) {
  BlockChain(s, OxConfigMgr::wbaes::Engine::kPortable);
}
void BM_WbAes_ChainAvx2(benchmark::State& s) { BlockChain(s, OxConfigMgr::wbaes::Engine::kAvx2); }
void BM_WbAes_ChainAvx512(benchmark::State& s) {
  BlockChain(s, OxConfigMgr::wbaes::Engine::kAvx512);
}

// WbAes/<engine>/<mode>/<bytes> for every engine, available or not.
const int kPerEngine = [] {
  using OxConfigMgr::wbaes::Engine;
  using OxConfigMgr::wbaes::EngineName;
  benchmark::AddCustomContext("wbaes_engine",
                              EngineName(OxConfigMgr::wbaes::SelectedEngine()));
  const std::pair<const char*, Op> ops[] = {{"CbcEncrypt256", Op::kCbcEncrypt},
                                            {"CbcDecrypt256", Op::kCbcDecrypt},
                                            {"EcbEncrypt256", Op::kEcbEncrypt},
                                            {"EcbDecrypt256", Op::kEcbDecrypt}};
  for (Engine e : {Engine::kPortable, Engine::kAvx2, Engine::kAvx512}) {
    for (const auto& op : ops) {
      const std::string name = std::string("WbAes/") + EngineName(e) + "/" + op.first;
      const Op o = op.second;
      benchmark::RegisterBenchmark(name.c_str(), [e, o](benchmark::State& s) { WbAesOn(s, e, o); })
          ->Arg(16)
          ->Arg(1024)
          ->Arg(16384);
    }
  }
  return 0;
}();

void BM_WbAes_CbcEncrypt256(benchmark::State& s) { WbAes(s, Op::kCbcEncrypt); }
void BM_WbAes_CbcDecrypt256(benchmark::State& s) { WbAes(s, Op::kCbcDecrypt); }
void BM_WbAes_EcbEncrypt256(benchmark::State& s) { WbAes(s, Op::kEcbEncrypt); }
void BM_WbAes_EcbDecrypt256(benchmark::State& s) { WbAes(s, Op::kEcbDecrypt); }
void BM_OpenSsl_Aes256CbcEncrypt(benchmark::State& s) { OpenSsl(s, EVP_aes_256_cbc(), true); }
void BM_OpenSsl_Aes256CbcDecrypt(benchmark::State& s) { OpenSsl(s, EVP_aes_256_cbc(), false); }
void BM_OpenSsl_Aes256EcbEncrypt(benchmark::State& s) { OpenSsl(s, EVP_aes_256_ecb(), true); }

#define WBAES_SIZES Arg(16)->Arg(1024)->Arg(16384)
BENCHMARK(BM_WbAes_CbcEncrypt256)->WBAES_SIZES;
BENCHMARK(BM_WbAes_CbcDecrypt256)->WBAES_SIZES;
BENCHMARK(BM_WbAes_EcbEncrypt256)->WBAES_SIZES;
BENCHMARK(BM_WbAes_EcbDecrypt256)->WBAES_SIZES;
BENCHMARK(BM_WbAes_DeriveTables);
BENCHMARK(BM_WbAes_ChainPortable);
BENCHMARK(BM_WbAes_ChainAvx2);
BENCHMARK(BM_WbAes_ChainAvx512);
BENCHMARK(BM_OpenSsl_Aes256CbcEncrypt)->WBAES_SIZES;
BENCHMARK(BM_OpenSsl_Aes256CbcDecrypt)->WBAES_SIZES;
BENCHMARK(BM_OpenSsl_Aes256EcbEncrypt)->WBAES_SIZES;

void BM_OpenSslTable_Aes256CbcEncrypt(benchmark::State& s) { OpenSslTable(s, Op::kCbcEncrypt); }
void BM_OpenSslTable_Aes256CbcDecrypt(benchmark::State& s) { OpenSslTable(s, Op::kCbcDecrypt); }
void BM_OpenSslTable_Aes256EcbEncrypt(benchmark::State& s) { OpenSslTable(s, Op::kEcbEncrypt); }
BENCHMARK(BM_OpenSslTable_Aes256CbcEncrypt)->WBAES_SIZES;
BENCHMARK(BM_OpenSslTable_Aes256CbcDecrypt)->WBAES_SIZES;
BENCHMARK(BM_OpenSslTable_Aes256EcbEncrypt)->WBAES_SIZES;

}  // namespace

#include "content/Sha256.h"

#include <array>

#include <openssl/evp.h>

#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

// Looked up once: finding an algorithm costs more than hashing a small file.
const EVP_MD* algorithm() {
  static const EVP_MD* const sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  return sha256;
}

void require(bool succeeded) {
  if (!succeeded) throw SkillsError::io("SHA-256 is not available in this system's cryptographic library");
}

}  // namespace

void Sha256::Free::operator()(evp_md_ctx_st* context) const { EVP_MD_CTX_free(context); }

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
  require(context_ != nullptr && algorithm() != nullptr);
  require(EVP_DigestInit_ex2(context_.get(), algorithm(), nullptr) == 1);
}

void Sha256::add(std::string_view bytes) { require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1); }

std::string Sha256::hex() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  require(EVP_DigestFinal_ex(context_.get(), digest.data(), &length) == 1);
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(std::size_t{2} * length);
  for (unsigned int i = 0; i < length; ++i) {
    text += kDigits[digest[i] >> 4U];
    text += kDigits[digest[i] & 0x0fU];
  }
  return text;
}

}  // namespace orvanta

#pragma once

// A running SHA-256.

#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace orvanta {

class Sha256 {
 public:
  Sha256();

  void add(std::string_view bytes);

  // The digest of all that was added, as 64 lower-case hexadecimal digits. Ends the computation.
  std::string hex();

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const;
  };
  std::unique_ptr<evp_md_ctx_st, Free> context_;
};

}  // namespace orvanta

// The key store of a Linux desktop, through libsecret. The library is loaded at the first use, and each call has a
// thread of its own: some of what it waits for (a session bus that accepts a connection and says nothing) cannot be
// cancelled, so the thread must be one that can be left behind.

#ifndef __APPLE__

#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include <fmt/format.h>
#include <libsecret/secret.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/Keychain.h"
#include "platform/KeychainBackend.h"
#include "platform/SharedLibrary.h"

namespace orvanta::Keychain::Backend {

namespace {

// How long a call that was cancelled gets to come back.
constexpr auto cancelDelay = std::chrono::milliseconds(500);

SharedLibrary loaded() {
  try {
    return SharedLibrary("libsecret-1.so.0");
  } catch (const SkillsError& error) {
    throw Failure(G_IO_ERROR_NOT_FOUND, error.message());
  }
}

struct SecretLibrary {
  static const SecretLibrary& get() {
    static const SecretLibrary library;
    return library;
  }

  decltype(&g_cancellable_new) cancellableNew;
  decltype(&g_cancellable_cancel) cancel;
  decltype(&g_object_unref) unref;
  decltype(&g_error_free) errorFree;
  decltype(&secret_password_lookup_sync) lookup;
  decltype(&secret_password_store_sync) store;
  decltype(&secret_password_clear_sync) clear;
  decltype(&secret_password_free) passwordFree;

 private:
  SecretLibrary() {
    const auto library = loaded();
    library.find(cancellableNew, "g_cancellable_new");
    library.find(cancel, "g_cancellable_cancel");
    library.find(unref, "g_object_unref");
    library.find(errorFree, "g_error_free");
    library.find(lookup, "secret_password_lookup_sync");
    library.find(store, "secret_password_store_sync");
    library.find(clear, "secret_password_clear_sync");
    library.find(passwordFree, "secret_password_free");
  }
};

// Receives an error from the library.
class ErrorSlot {
 public:
  explicit ErrorSlot(const SecretLibrary& library) : library_(library) {}
  ~ErrorSlot() {
    if (error_ != nullptr) library_.errorFree(error_);
  }
  ErrorSlot(const ErrorSlot&) = delete;
  ErrorSlot& operator=(const ErrorSlot&) = delete;

  GError** slot() { return &error_; }
  void throwAny() const {
    if (error_ != nullptr) throw Failure(error_->code, Text::singleLine(error_->message));
  }

 private:
  const SecretLibrary& library_;
  GError* error_ = nullptr;
};

const SecretSchema& schema() {
  static const SecretSchema schema = [] {
    SecretSchema result{};
    result.name = service;
    result.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
    result.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    return result;
  }();
  return schema;
}

// Asks the key store; the text of the item where that was the question.
using Call = std::function<std::optional<std::string>(const SecretLibrary&, GCancellable*)>;

// How a call ended, passed from its thread to the one that waits.
struct Outcome {
  std::optional<std::string> text;
  std::optional<int> failureStatus;
  std::string failureReason;
};

Outcome make(const Call& call, const SecretLibrary& library, GCancellable* cancellable) {
  try {
    return {call(library, cancellable), std::nullopt, ""};
  } catch (const Failure& failure) {
    return {std::nullopt, failure.status, failure.what()};
  }
}

// The call's result. Throws `Failure` when it fails or takes longer than `patience`.
std::optional<std::string> patiently(std::chrono::milliseconds patience, Call call) {
  const auto& library = SecretLibrary::get();
  const std::shared_ptr<GCancellable> cancellable(library.cancellableNew(), library.unref);
  std::packaged_task<Outcome()> task(
      [&library, cancellable, call = std::move(call)] { return make(call, library, cancellable.get()); });
  auto result = task.get_future();
  std::thread(std::move(task)).detach();
  if (result.wait_for(patience) != std::future_status::ready) {
    library.cancel(cancellable.get());
    result.wait_for(cancelDelay);
    throw Failure(G_IO_ERROR_TIMED_OUT, fmt::format("the key store did not answer within {} seconds",
                                                    std::chrono::duration<double>(patience).count()));
  }
  auto outcome = result.get();
  if (outcome.failureStatus) throw Failure(*outcome.failureStatus, outcome.failureReason);
  return std::move(outcome.text);
}

std::optional<std::string> lookUp(const SecretLibrary& library, GCancellable* cancellable, const std::string& account) {
  ErrorSlot error(library);
  char* secret =
      library.lookup(&schema(), cancellable, error.slot(), "service", service, "account", account.c_str(), nullptr);
  error.throwAny();
  if (secret == nullptr) return std::nullopt;
  std::string result = secret;
  library.passwordFree(secret);
  return result;
}

void store(const SecretLibrary& library, GCancellable* cancellable, const std::string& account,
           const std::string& value) {
  ErrorSlot error(library);
  const std::string label = "Orvanta: " + account;
  const bool stored = library.store(&schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), value.c_str(), cancellable,
                                    error.slot(), "service", service, "account", account.c_str(), nullptr) != FALSE;
  error.throwAny();
  if (!stored) throw Failure(SECRET_ERROR_IS_LOCKED, "the key store stayed locked");
}

}  // namespace

std::string advice() {
  return "Start a key store of your desktop, such as GNOME Keyring or KWallet, or unlock it, and try again.";
}

std::optional<std::string> readItem(const std::string& account, std::chrono::milliseconds patience) {
  return patiently(patience,
                   [account](const auto& library, auto* cancellable) { return lookUp(library, cancellable, account); });
}

void writeItem(const std::string& account, const std::string& value, std::chrono::milliseconds patience) {
  patiently(patience, [account, value](const auto& library, auto* cancellable) {
    store(library, cancellable, account, value);
    return std::nullopt;
  });
}

void removeItem(const std::string& account, std::chrono::milliseconds patience) {
  patiently(patience, [account](const auto& library, auto* cancellable) {
    ErrorSlot error(library);
    library.clear(&schema(), cancellable, error.slot(), "service", service, "account", account.c_str(), nullptr);
    error.throwAny();
    return std::nullopt;
  });
}

}  // namespace orvanta::Keychain::Backend

#endif

// The key store of a Linux desktop, through libsecret. The library is loaded at the first use, and each call has a
// thread of its own: some of what it waits for (a session bus that accepts a connection and says nothing) cannot be
// cancelled, so the thread must be one that can be left behind.

#ifndef __APPLE__

#include <algorithm>
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

using SteadyClock = std::chrono::steady_clock;

// How long a requested stop may go unnoticed.
constexpr std::chrono::milliseconds longestWait(100);
// How long a call that was cancelled gets to come back.
constexpr std::chrono::milliseconds cancelDelay(500);

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

// What a call found out, each part where that was the question.
struct Answer {
  std::optional<std::string> text = {};
  bool wasRemoved = false;
};
using Call = std::function<Answer(const SecretLibrary&, GCancellable*)>;

// How a call ended, passed from its thread to the one that waits.
struct Outcome {
  Answer answer = {};
  std::optional<int> failureStatus = {};
  std::string failureReason = {};
};

Outcome make(const Call& call, const SecretLibrary& library, GCancellable* cancellable) {
  try {
    return {.answer = call(library, cancellable)};
  } catch (const Failure& failure) {
    return {.failureStatus = failure.status, .failureReason = failure.what()};
  }
}

// Returns when the result is there; throws `Failure` when it is no longer to be waited for.
void await(const std::future<Outcome>& result, const Wait& wait) {
  const auto deadline = SteadyClock::now() + wait.patience;
  while (result.wait_until(std::min(deadline, SteadyClock::now() + longestWait)) != std::future_status::ready) {
    if (wait.stop.stop_requested()) throw Failure(G_IO_ERROR_CANCELLED, "the wait for the key store was stopped");
    if (SteadyClock::now() < deadline) continue;
    throw Failure(G_IO_ERROR_TIMED_OUT, fmt::format("the key store did not answer within {} seconds",
                                                    std::chrono::duration<double>(wait.patience).count()));
  }
}

// What the call found out. Throws `Failure` when it fails, takes longer than it may or is stopped.
Answer patiently(const Wait& wait, Call call) {
  const auto& library = SecretLibrary::get();
  const std::shared_ptr<GCancellable> cancellable(library.cancellableNew(), library.unref);
  std::packaged_task<Outcome()> task(
      [&library, cancellable, call = std::move(call)] { return make(call, library, cancellable.get()); });
  auto result = task.get_future();
  std::thread(std::move(task)).detach();
  try {
    await(result, wait);
  } catch (const Failure&) {
    library.cancel(cancellable.get());
    result.wait_for(cancelDelay);
    throw;
  }
  auto outcome = result.get();
  if (outcome.failureStatus) throw Failure(*outcome.failureStatus, outcome.failureReason);
  return std::move(outcome.answer);
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

bool clear(const SecretLibrary& library, GCancellable* cancellable, const std::string& account) {
  ErrorSlot error(library);
  const bool wasRemoved = library.clear(&schema(), cancellable, error.slot(), "service", service, "account",
                                        account.c_str(), nullptr) != FALSE;
  error.throwAny();
  return wasRemoved;
}

}  // namespace

std::string advice() {
  return "Start a key store of your desktop, such as GNOME Keyring or KWallet, or unlock it, and try again.";
}

std::optional<std::string> readItem(const std::string& account, const Wait& wait) {
  return patiently(wait,
                   [account](const auto& library, auto* cancellable) -> Answer {
                     return {.text = lookUp(library, cancellable, account)};
                   })
      .text;
}

void writeItem(const std::string& account, const std::string& value, const Wait& wait) {
  patiently(wait, [account, value](const auto& library, auto* cancellable) -> Answer {
    store(library, cancellable, account, value);
    return {};
  });
}

bool removeItem(const std::string& account, const Wait& wait) {
  return patiently(wait,
                   [account](const auto& library, auto* cancellable) -> Answer {
                     return {.wasRemoved = clear(library, cancellable, account)};
                   })
      .wasRemoved;
}

}  // namespace orvanta::Keychain::Backend

#endif

// The login keychain of macOS.

#ifdef __APPLE__

#include <array>
#include <memory>
#include <type_traits>

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

#include "platform/Keychain.h"
#include "platform/KeychainBackend.h"

namespace orvanta::Keychain::Backend {

namespace {

struct Release {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

Owned<CFStringRef> text(const std::string& value) {
  return Owned<CFStringRef>(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(value.data()),
                                                    static_cast<CFIndex>(value.size()), kCFStringEncodingUTF8, false));
}

Owned<CFDataRef> data(const std::string& value) {
  return Owned<CFDataRef>(
      CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(value.data()), static_cast<CFIndex>(value.size())));
}

Owned<CFMutableDictionaryRef> dictionary() {
  return Owned<CFMutableDictionaryRef>(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// What identifies the item of an account.
Owned<CFMutableDictionaryRef> identity(const std::string& account) {
  auto result = dictionary();
  CFDictionarySetValue(result.get(), kSecClass, kSecClassGenericPassword);
  CFDictionarySetValue(result.get(), kSecAttrService, text(service).get());
  CFDictionarySetValue(result.get(), kSecAttrAccount, text(account).get());
  return result;
}

OSStatus add(const std::string& account, CFDataRef value) {
  const auto item = identity(account);
  CFDictionarySetValue(item.get(), kSecValueData, value);
  // Background work may read the item once the user has unlocked the machine.
  CFDictionarySetValue(item.get(), kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock);
  return SecItemAdd(item.get(), nullptr);
}

std::string reasonOf(OSStatus status) {
  const Owned<CFStringRef> message(SecCopyErrorMessageString(status, nullptr));
  std::array<char, 256> buffer{};
  if (message == nullptr || !CFStringGetCString(message.get(), buffer.data(), buffer.size(), kCFStringEncodingUTF8)) {
    return "the keychain refused the item";
  }
  return buffer.data();
}

}  // namespace

std::string advice() { return "Unlock the login keychain in Keychain Access and try again."; }

std::optional<std::string> readItem(const std::string& account, const Wait&) {
  const auto query = identity(account);
  CFDictionarySetValue(query.get(), kSecReturnData, kCFBooleanTrue);
  CFDictionarySetValue(query.get(), kSecMatchLimit, kSecMatchLimitOne);
  CFTypeRef found = nullptr;
  if (SecItemCopyMatching(query.get(), &found) != errSecSuccess || found == nullptr) return std::nullopt;
  const Owned<CFDataRef> bytes(static_cast<CFDataRef>(found));
  return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.get())),
                     static_cast<std::size_t>(CFDataGetLength(bytes.get())));
}

void writeItem(const std::string& account, const std::string& value, const Wait&) {
  const auto bytes = data(value);
  const auto change = dictionary();
  CFDictionarySetValue(change.get(), kSecValueData, bytes.get());
  auto status = SecItemUpdate(identity(account).get(), change.get());
  if (status == errSecItemNotFound) status = add(account, bytes.get());
  if (status != errSecSuccess) throw Failure(static_cast<int>(status), reasonOf(status));
}

bool removeItem(const std::string& account, const Wait&) {
  return SecItemDelete(identity(account).get()) == errSecSuccess;
}

}  // namespace orvanta::Keychain::Backend

#endif

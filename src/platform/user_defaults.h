#pragma once
// The per-user key/value store (QSettings, organisation "Tarvane", application "Ombrik").
// Reads fall back to the defaults table when a key is absent.
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ombrik {

struct UserDefaultSpec {
  std::string key;
  enum class Type { string, boolean, integer, real, stringList } type;
  // Absent when the default is "none" or is decided by the feature that reads the key.
  std::optional<std::variant<std::string, bool, int, double>> value;
};

class UserDefaults {
public:
  UserDefaults();                                // the program's own store
  explicit UserDefaults(const std::string& iniPath);  // a separate file, e.g. for tests
  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  static const std::vector<UserDefaultSpec>& table();
  static const UserDefaultSpec* spec(const std::string& key);

  bool contains(const std::string& key) const;
  std::optional<std::string> string(const std::string& key) const;
  bool boolean(const std::string& key) const;
  int integer(const std::string& key) const;
  double real(const std::string& key) const;
  std::vector<std::string> stringList(const std::string& key) const;

  void set(const std::string& key, const std::string& value);
  void set(const std::string& key, const char* value) { set(key, std::string(value)); }
  void set(const std::string& key, bool value);
  void set(const std::string& key, int value);
  void set(const std::string& key, double value);
  void set(const std::string& key, const std::vector<std::string>& value);
  void remove(const std::string& key);
  void sync();  // flush to disk now

private:
  struct Store;
  std::unique_ptr<Store> store_;
};

}  // namespace ombrik

#include "platform/user_defaults.h"

#include <QSettings>
#include <QStringList>
#include <nlohmann/json.hpp>

#include "platform/embedded_data.h"

namespace ombrik {

struct UserDefaults::Store {
  QSettings settings;
  Store() : settings(QStringLiteral("Tarvane"), QStringLiteral("Ombrik")) {}
  explicit Store(const std::string& path) : settings(QString::fromStdString(path), QSettings::IniFormat) {}
};

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }

std::vector<UserDefaultSpec> loadTable() {
  const auto rows = nlohmann::json::parse(embeddedUserDefaultsJson());
  std::vector<UserDefaultSpec> out;
  for (const auto& r : rows) {
    UserDefaultSpec s;
    s.key = r.at("key").get<std::string>();
    const auto type = r.at("type").get<std::string>();
    using T = UserDefaultSpec::Type;
    s.type = type == "string" ? T::string : type == "bool" ? T::boolean : type == "int" ? T::integer
           : type == "double" ? T::real : T::stringList;
    const auto& v = r.at("default");
    if (v.is_boolean()) s.value = v.get<bool>();
    else if (v.is_number_integer() && s.type == T::integer) s.value = v.get<int>();
    else if (v.is_number()) s.value = v.get<double>();
    else if (v.is_string()) s.value = v.get<std::string>();
    out.push_back(std::move(s));
  }
  return out;
}

template <class T>
std::optional<T> tableDefault(const std::string& key) {
  if (const auto* s = UserDefaults::spec(key))
    if (s->value)
      if (const auto* v = std::get_if<T>(&*s->value)) return *v;
  return std::nullopt;
}
}  // namespace

UserDefaults::UserDefaults() : store_(std::make_unique<Store>()) {}
UserDefaults::UserDefaults(const std::string& iniPath) : store_(std::make_unique<Store>(iniPath)) {}
UserDefaults::~UserDefaults() = default;

const std::vector<UserDefaultSpec>& UserDefaults::table() {
  static const std::vector<UserDefaultSpec> table = loadTable();
  return table;
}

const UserDefaultSpec* UserDefaults::spec(const std::string& key) {
  for (const auto& s : table())
    if (s.key == key) return &s;
  return nullptr;
}

bool UserDefaults::contains(const std::string& key) const { return store_->settings.contains(q(key)); }

std::optional<std::string> UserDefaults::string(const std::string& key) const {
  if (!contains(key)) return tableDefault<std::string>(key);
  return store_->settings.value(q(key)).toString().toStdString();
}

bool UserDefaults::boolean(const std::string& key) const {
  if (!contains(key)) return tableDefault<bool>(key).value_or(false);
  return store_->settings.value(q(key)).toBool();
}

int UserDefaults::integer(const std::string& key) const {
  if (!contains(key)) return tableDefault<int>(key).value_or(0);
  return store_->settings.value(q(key)).toInt();
}

double UserDefaults::real(const std::string& key) const {
  if (!contains(key)) return tableDefault<double>(key).value_or(0.0);
  return store_->settings.value(q(key)).toDouble();
}

std::vector<std::string> UserDefaults::stringList(const std::string& key) const {
  std::vector<std::string> out;
  for (const auto& s : store_->settings.value(q(key)).toStringList()) out.push_back(s.toStdString());
  return out;
}

void UserDefaults::set(const std::string& key, const std::string& value) { store_->settings.setValue(q(key), q(value)); }
void UserDefaults::set(const std::string& key, bool value) { store_->settings.setValue(q(key), value); }
void UserDefaults::set(const std::string& key, int value) { store_->settings.setValue(q(key), value); }
void UserDefaults::set(const std::string& key, double value) { store_->settings.setValue(q(key), value); }
void UserDefaults::set(const std::string& key, const std::vector<std::string>& value) {
  QStringList list;
  for (const auto& s : value) list << q(s);
  store_->settings.setValue(q(key), list);
}
void UserDefaults::remove(const std::string& key) { store_->settings.remove(q(key)); }
void UserDefaults::sync() { store_->settings.sync(); }

}  // namespace ombrik

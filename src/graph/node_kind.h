#pragma once
// The descriptor of a kind of node, and the catalogues of every built-in kind.
// The catalogues are built once from the embedded kind table and never change afterwards.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "graph/localized.h"
#include "graph/param_spec.h"
#include "graph/port_spec.h"

namespace ombrik {

struct NodeKind;
struct NodeGroup;

// A shared, immutable kind. Nodes carry one each (group and user kinds live outside the
// catalogues), and copying a node must not copy its thirty parameter descriptors.
class KindRef {
public:
  KindRef() = default;
  explicit KindRef(std::shared_ptr<const NodeKind> kind) : k_(std::move(kind)) {}
  const NodeKind& operator*() const { return *k_; }
  const NodeKind* operator->() const { return k_.get(); }
  explicit operator bool() const { return static_cast<bool>(k_); }
  bool operator==(const KindRef& o) const;  // kinds are equal when their ids are

private:
  std::shared_ptr<const NodeKind> k_;
};

struct KindCategory {
  Localized name;
  std::vector<KindRef> kinds;
};

struct NodeKind {
  std::string id;
  Localized title;
  Localized tag;  // "IA" marks a local AI kind
  Localized category;
  std::uint32_t tintHex = 0;  // 0xRRGGBB
  std::vector<PortSpec> inputs;
  std::vector<ParamSpec> params;
  Localized info;
  Localized hint;
  bool hasOutput = true;
  std::optional<std::string> kernel;     // kinds of the generic effect path
  std::optional<std::string> blurParam;  // key of the pre-blur size of the auxiliary input

  bool operator==(const NodeKind& o) const { return id == o.id; }

  bool makesMatte() const;  // the picture output is itself a matte
  bool isModel() const;     // made at run time by the model registry
  std::uint32_t tint() const;  // the card colour
  const ParamSpec* param(std::string_view key) const;  // the first spec with that key

  // Catalogues.
  static const std::vector<KindCategory>& categories();
  static const std::vector<KindRef>& all();
  static const std::unordered_map<std::string, KindRef>& byID();
  static const KindRef* find(std::string_view id);
  static const std::vector<KindRef>& fx();
  static const std::vector<KindRef>& fxMore();
  static const std::vector<KindRef>& localAI();
  static const Localized& defaultHint();
  // The kind of a group node: its ports from the group's inputs, one parameter per control.
  static KindRef group(const std::string& name, const NodeGroup& group);

  // The well-known kinds.
  static const KindRef& media();
  static const KindRef& mask();
  static const KindRef& color();
  static const KindRef& beauty();
  static const KindRef& glow();
  static const KindRef& denoise();
  static const KindRef& greenkey();
  static const KindRef& greenkeyai();
  static const KindRef& retime();
  static const KindRef& renoise();
  static const KindRef& mux();
  static const KindRef& motionvec();
  static const KindRef& camtrack();
  static const KindRef& tracker();
  static const KindRef& stabilize();
  static const KindRef& meshwarp();
  static const KindRef& facereshape();
  static const KindRef& paintbeauty();
  static const KindRef& beautyzones();
  static const KindRef& grain();
  static const KindRef& magicmask();
  static const KindRef& objectmask();
  static const KindRef& bodymask();
  static const KindRef& dot();
  static const KindRef& hairmatte();
  static const KindRef& genfill();
  static const KindRef& xform();
  static const KindRef& freeze();
  static const KindRef& output();
};

inline bool KindRef::operator==(const KindRef& o) const {
  if (k_ == o.k_) return true;
  return k_ && o.k_ && k_->id == o.k_->id;
}

}  // namespace ombrik

template <>
struct std::hash<ombrik::NodeKind> {
  std::size_t operator()(const ombrik::NodeKind& k) const noexcept { return std::hash<std::string>()(k.id); }
};

// Objects that are hard to archive, and graphs of them.
#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "vnxstd/archive.h"

namespace {

std::atomic<int> alive{0};  // objects of the classes below

// Without a count; has one owner.
class Pet : public qcPersistent {
 public:
  explicit Pet(unsigned char n = 0) : number(n) { ++alive; }
  Pet(const Pet& other) : qcPersistent(other), number(other.number) { ++alive; }
  ~Pet() override { --alive; }
  static qcPersistent* make() { return new Pet; }
  unsigned char number;
  bool throwing = false;
  bool legacy = false;

  bool loadLegacy(qcArchive& archive) override {
    if (legacy) archive || number;
    return legacy;
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 1, &Pet::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(version, 1, "pet", 5);
    qcPersistent::dispatchSerialize(archive);
    if (throwing) throw std::runtime_error("pet");
    archive || number;
  }
};

// Much that can go wrong in one class: circles, virtual bases, an owned object, a handle onto itself that is dropped.
class Node : public virtual qcRepBase, public virtual qcPersistent {
 public:
  Node() { ++alive; }
  ~Node() override { --alive; }
  Node(const Node&) = delete;
  static qcPersistent* make() { return new Node; }
  void rename(const std::string& to) {
    mutating();
    name = to;
  }
  void preLoad() override {
    if (letsGo) edges.clear();
  }
  std::string name;
  std::vector<qcPtrHandle<Node>> edges;
  std::vector<double> data;
  std::unique_ptr<Pet> pet;
  qcPtrHandle_const<Node> look;
  static inline bool letsGo = false;  // whether preLoad drops the handles

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &Node::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(version, 0, "node", 7);
    qcPersistent::dispatchSerialize(archive);
    archive || name || edges || data || pet || look;
    const qcPtrHandle<Node> passing(this);  // whose end must not be the object's
  }
};

const qc_Instantiator petRegistered(typeid(Pet), &Pet::make), nodeRegistered(typeid(Node), &Node::make);

using NodeHandle = qcPtrHandle<Node>;

std::vector<Node*> reachable(const NodeHandle& root) {
  std::vector<Node*> found;
  const std::function<void(Node*)> visit = [&](Node* node) {
    if (!node || std::find(found.begin(), found.end(), node) != found.end()) return;
    found.push_back(node);
    for (const auto& edge : node->edges) visit(edge.rep());
    visit(const_cast<Node*>(node->look.rep()));
  };
  visit(root.rep());
  return found;
}

// Takes the circles apart.
[[maybe_unused]] void dissolve(const NodeHandle& root) {
  std::vector<NodeHandle> hold;
  for (Node* node : reachable(root)) hold.emplace_back(node);
  for (const auto& node : hold) {
    node->edges.clear();
    node->look.release();
  }
}

[[maybe_unused]] NodeHandle randomGraph(std::mt19937& random, std::size_t size) {
  std::vector<NodeHandle> nodes;
  for (std::size_t i = 0; i < size; ++i) {
    nodes.emplace_back(new Node);
    nodes[i]->name = std::to_string(i);
    nodes[i]->data.assign(random() % 3, 0.5);
    if (random() % 3 == 0) nodes[i]->pet = std::make_unique<Pet>(static_cast<unsigned char>(i));
  }
  for (std::size_t i = 0; i < size; ++i) {
    if (i + 1 < size) nodes[random() % (i + 1)]->edges.push_back(nodes[i + 1]);  // all can be reached
    for (std::size_t extra = random() % 3; extra-- > 0;) nodes[i]->edges.push_back(nodes[random() % size]);
    if (random() % 5 == 0) nodes[i]->edges.emplace_back();
    if (random() % 3 == 0) nodes[i]->look = nodes[random() % size];
  }
  return nodes[0];
}

}  // namespace

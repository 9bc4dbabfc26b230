#include "platform/graphics/graph.h"

#include "platform/graphics/pass.h"
#include "platform/graphics/world.h"
#include "platform/support/debug.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace voGR {

// ---------------------------------------------------------------------------------------------
// Node

Node::Node() = default;
Node::~Node() = default;

Node* Node::getInput(const ruString::CString& name) const {
  for (const Edge* edge : in_) {
    if (edge->name == name) return edge->source;
  }
  return nullptr;
}

std::vector<Node*> Node::getInputs(const ruString::CString& name) const {
  std::vector<Node*> result;
  for (const Edge* edge : in_) {
    if (edge->name == name) result.push_back(edge->source);
  }
  return result;
}

Node* Node::getOutput(const ruString::CString& name) const {
  for (const Edge* edge : out_) {
    if (edge->name == name) return edge->target;
  }
  return nullptr;
}

void Node::execute(PassContext& context) {
  ++executions_;
  onExecute(context);
}

void Node::onImplicitDependencies(std::vector<Node*>&) const {}
void Node::onExecute(PassContext&) {}
const char* Node::onKindName() const { return "Node"; }

// ---------------------------------------------------------------------------------------------
// State chains

struct DataNode::Chain {
  std::vector<DataNode*> states;
  ruRen::FBOKey fbo;
};

DataNode::DataNode() : chain_(std::make_shared<Chain>()) { chain_->states.push_back(this); }

DataNode::~DataNode() {
  auto& states = chain_->states;
  states.erase(std::remove(states.begin(), states.end(), this), states.end());
}

bool DataNode::appendState(DataNode* state) {
  if (!state || state == this || state->chain_ == chain_ || state->chain_->states.size() != 1) return false;
  chain_->states.push_back(state);
  state->chain_ = chain_;
  return true;
}

DataNode* DataNode::getLastState() const { return chain_->states.back(); }
DataNode* DataNode::getFirstState() const { return chain_->states.front(); }

DataNode* DataNode::getPreviousState() const {
  const auto& states = chain_->states;
  auto it = std::find(states.begin(), states.end(), this);
  return it == states.begin() || it == states.end() ? nullptr : *(it - 1);
}

const std::vector<DataNode*>& DataNode::getChain() const { return chain_->states; }

// A state holds what the state before it held plus what its passes wrote, so it depends on the
// previous state even when no edge says so.
void DataNode::onImplicitDependencies(std::vector<Node*>& out) const {
  if (DataNode* previous = getPreviousState()) out.push_back(previous);
}

const char* DataNode::onKindName() const { return "DataNode"; }

RenderTargetNode::RenderTargetNode() = default;
RenderTargetNode::~RenderTargetNode() = default;
ruRen::FBOKey RenderTargetNode::getFBO() const { return chain().fbo; }
void RenderTargetNode::setFBO(const ruRen::FBOKey& key) { chain().fbo = key; }
const char* RenderTargetNode::onKindName() const { return "RenderTargetNode"; }

// ---------------------------------------------------------------------------------------------
// Cameras and clip planes

CameraNode::CameraNode() = default;
CameraNode::~CameraNode() = default;

ruGeom::Camera CameraNode::getCamera() const {
  // A camera whose clip node reads this very camera would recurse; the flag cuts that short.
  thread_local int depth = 0;
  auto* clip = dynamic_cast<UpdateClipPlanesNode*>(getInput("renCamera"));
  if (!clip || depth > 8) return camera_;
  ++depth;
  ruGeom::Camera camera = clip->computeCamera();
  --depth;
  return camera;
}

void CameraNode::onExecute(PassContext&) {
  if (getInput("renCamera")) camera_ = getCamera();
}

const char* CameraNode::onKindName() const { return "CameraNode"; }

UpdateClipPlanesNode::UpdateClipPlanesNode() = default;
UpdateClipPlanesNode::~UpdateClipPlanesNode() = default;

ruGeom::Camera UpdateClipPlanesNode::computeCamera() const {
  ruGeom::Camera camera;
  if (auto* view = dynamic_cast<CameraNode*>(getInput("viewCamera"))) camera = view->getCamera();
  ruGeom::BoundingBox box;
  for (Node* node : getInputs("world")) {
    auto* worldNode = dynamic_cast<WorldNode*>(node);
    if (!worldNode || !worldNode->getWorld()) continue;
    ruGeom::BoundingBox worldBox;
    worldNode->getWorld()->getBoundingBox(worldBox, {});
    if (worldBox.valid()) box.extend(worldBox);
  }
  if (!box.valid()) return camera;
  double nearest = HUGE_VAL, farthest = -HUGE_VAL;
  for (int i = 0; i < 8; ++i) {
    const ruLinear::Point corner((i & 1) ? box.getMax().x : box.getMin().x, (i & 2) ? box.getMax().y : box.getMin().y,
                                 (i & 4) ? box.getMax().z : box.getMin().z);
    const double depth = camera.screenDepthAtPoint(corner);
    nearest = std::min(nearest, depth);
    farthest = std::max(farthest, depth);
  }
  if (!(farthest > 0) || !std::isfinite(farthest)) return camera;
  // A margin keeps faces lying on the box from being clipped; near never reaches the eye, or the
  // depth buffer would lose all precision.
  const double margin = 0.01 * (farthest - std::min(nearest, farthest)) + 1e-6 * farthest;
  const double farPlane = farthest + margin;
  const double nearPlane = std::max(nearest - margin, farPlane * 1e-4);
  ruGeom::AngleAspect frustum = camera.getFrustum();
  frustum.setDepthRange(nearPlane, farPlane);
  camera.setFrustum(frustum);
  return camera;
}

const char* UpdateClipPlanesNode::onKindName() const { return "UpdateClipPlanesNode"; }

// ---------------------------------------------------------------------------------------------
// Passes

ClearNode::ClearNode() = default;
ClearNode::~ClearNode() = default;

void ClearNode::onExecute(PassContext& context) {
  RenderTargetNode* target = PassContext::targetOf(*this);
  if (!context.bindTarget(target, nullptr)) return;
  context.clear(color_, true, true);
}

const char* ClearNode::onKindName() const { return "ClearNode"; }

RenderNode::RenderNode() = default;
RenderNode::~RenderNode() = default;

void RenderNode::onExecute(PassContext& context) {
  auto* cameraNode = dynamic_cast<CameraNode*>(getInput("camera"));
  if (!cameraNode) {
    voSupport::Debug::getInstance().print(DebugGraphics, "voGR::RenderNode::onExecute",
                                          "render node \"%s\" has no \"camera\" input; nothing drawn",
                                          getName().c_str());
    return;
  }
  const ruGeom::Camera camera = cameraNode->getCamera();
  RenderTargetNode* target = PassContext::targetOf(*this);
  if (!context.bindTarget(target, &camera)) return;
  std::vector<World*> worlds;
  for (Node* node : getInputs("world")) {
    if (auto* worldNode = dynamic_cast<WorldNode*>(node)) worlds.push_back(worldNode->getWorld());
  }
  ItemPassOptions options;
  options.rasterizer = rasterizer_;
  options.reject = reject_;
  context.drawItems(worlds, camera, options);
}

const char* RenderNode::onKindName() const { return "RenderNode"; }

PassContext::~PassContext() = default;

RenderTargetNode* PassContext::targetOf(const Node& pass) {
  return dynamic_cast<RenderTargetNode*>(pass.getOutput("target"));
}

// ---------------------------------------------------------------------------------------------
// Graph

Graph::Graph() = default;

Graph::~Graph() {
  // Edges first: node destructors must not see half-removed edges.
  edges_.clear();
  for (Node* node : nodes_) {
    node->in_.clear();
    node->out_.clear();
  }
  for (Node* node : nodes_) delete node;
}

std::vector<const Edge*> Graph::getEdges() const {
  std::vector<const Edge*> result;
  result.reserve(edges_.size());
  for (const auto& edge : edges_) result.push_back(edge.get());
  return result;
}

bool Graph::contains(const Node* node) const noexcept { return node && node->graph_ == this; }

bool Graph::dependencyOrder(Node* target, std::vector<Node*>& order) const {
  order.clear();
  if (!contains(target)) {
    voSupport::Debug::getInstance().print(DebugGraphics, "voGR::Graph::dependencyOrder",
                                          "the target is not a node of this graph");
    return false;
  }
  // Depth-first, post-order: a node is placed after everything it depends on. A node met again
  // while still open closes a cycle.
  enum Mark { Open = 1, Done = 2 };
  std::unordered_map<const Node*, int> marks;
  struct Frame {
    Node* node;
    std::vector<Node*> dependencies;
    std::size_t next;
  };
  std::vector<Frame> stack;
  auto push = [&](Node* node) {
    Frame frame{node, {}, 0};
    for (const Edge* edge : node->in_) frame.dependencies.push_back(edge->source);
    node->getImplicitDependencies(frame.dependencies);
    marks[node] = Open;
    stack.push_back(std::move(frame));
  };
  push(target);
  while (!stack.empty()) {
    Frame& frame = stack.back();
    if (frame.next == frame.dependencies.size()) {
      marks[frame.node] = Done;
      order.push_back(frame.node);
      stack.pop_back();
      continue;
    }
    Node* dependency = frame.dependencies[frame.next++];
    if (!contains(dependency)) continue;
    const int mark = marks[dependency];
    if (mark == Done) continue;
    if (mark == Open) {
      voSupport::Debug::getInstance().print(DebugGraphics, "voGR::Graph::dependencyOrder",
                                            "cycle: node \"%s\" (%s) depends on itself through \"%s\" (%s); draw refused",
                                            dependency->getName().c_str(), dependency->getKindName(),
                                            frame.node->getName().c_str(), frame.node->getKindName());
      order.clear();
      return false;
    }
    push(dependency);
  }
  return true;
}

bool GraphEditor::addNode(Node* node) {
  if (!graph_ || !node || node->graph_) return false;
  node->graph_ = graph_;
  graph_->nodes_.push_back(node);
  return true;
}

bool GraphEditor::deleteNode(Node* node) {
  if (!graph_ || !graph_->contains(node)) return false;
  std::vector<Edge*> edges = node->in_;
  edges.insert(edges.end(), node->out_.begin(), node->out_.end());
  for (Edge* edge : edges) deleteEdge(edge);
  auto& nodes = graph_->nodes_;
  nodes.erase(std::remove(nodes.begin(), nodes.end(), node), nodes.end());
  delete node;
  return true;
}

Edge* GraphEditor::createEdge(Node* source, Node* target) { return createEdge(source, target, ruString::CString()); }

Edge* GraphEditor::createEdge(Node* source, Node* target, const ruString::CString& name) {
  if (!graph_ || !graph_->contains(source) || !graph_->contains(target)) return nullptr;
  auto edge = std::make_unique<Edge>();
  edge->source = source;
  edge->target = target;
  edge->name = name;
  Edge* handle = edge.get();
  graph_->edges_.push_back(std::move(edge));
  source->out_.push_back(handle);
  target->in_.push_back(handle);
  return handle;
}

bool GraphEditor::deleteEdge(Edge* edge) {
  if (!graph_ || !edge) return false;
  auto& edges = graph_->edges_;
  auto it = std::find_if(edges.begin(), edges.end(), [&](const auto& e) { return e.get() == edge; });
  if (it == edges.end()) return false;
  auto& out = edge->source->out_;
  out.erase(std::remove(out.begin(), out.end(), edge), out.end());
  auto& in = edge->target->in_;
  in.erase(std::remove(in.begin(), in.end(), edge), in.end());
  edges.erase(it);
  return true;
}

bool GraphEditor::deleteEdge(Node* source, Node* target, const ruString::CString& name) {
  if (!graph_) return false;
  for (const auto& edge : graph_->edges_) {
    if (edge->source == source && edge->target == target && edge->name == name) return deleteEdge(edge.get());
  }
  return false;
}

void printOutGraph(Graph* graph) {
  auto& debug = voSupport::Debug::getInstance();
  if (!graph || !debug.isEnabled(DebugGraphics)) return;
  const char* function = "voGR::printOutGraph";
  std::unordered_map<const Node*, int> index;
  for (const Node* node : graph->getNodes()) {
    const int i = static_cast<int>(index.size());
    index[node] = i;
    debug.print(DebugGraphics, function, "node %d \"%s\" %s", i, node->getName().c_str(), node->getKindName());
  }
  for (const Edge* edge : graph->getEdges()) {
    debug.print(DebugGraphics, function, "edge %d \"%s\" -> %d \"%s\" name \"%s\"", index[edge->source],
                edge->source->getName().c_str(), index[edge->target], edge->target->getName().c_str(),
                edge->name.c_str());
  }
}

}  // namespace voGR

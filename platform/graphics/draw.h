#pragma once

#include "platform/base/color.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/geometry/box.h"
#include "platform/geometry/mesh.h"
#include "platform/graphics/device.h"
#include "platform/graphics/export.h"
#include "platform/resources/resources.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace voSupport {
class Tag;
}

namespace voDMG {
class ObjectDraw;
}

namespace voGR {

class Database;
class DataNodeStateInfo;
class DrawData;
class DrawSystem;
class Graph;
class Node;
class RenderTargetNode;
class Shader;
class World;

// Where an item's coordinates live: the world, or the viewport in pixels.
enum Space : int { SpaceWorld = 0, SpaceScreen = 1 };
// What an item is: an ordinary mesh, or a helper (axes, printer frame) that framing skips.
enum Type : int { TypeOrdinary = 0, TypeHelper = 2 };
// How an item meets the depth buffer: normally, x-ray (shown also where hidden), or a further mode
// that the x-ray passes' behind filters tell apart.
enum DepthInteraction : int { DepthNormal = 0, DepthXRay = 1, DepthFurther = 2 };

// A drawing policy a surface chooses per object. Reference counted; derived classes add state.
class VO_GR_API DrawPolicy : public ru::ReferenceCount {
public:
  ~DrawPolicy() override;
};

// Places an item at draw time: an item with a transformer is positioned by evaluate() alone (its
// own transform is ignored), so moving the camera needs no re-emission. Held by the item.
class VO_GR_API Transformer : public ru::ReferenceCount {
protected:
  ~Transformer() override;

public:
  // Local to world of the item now. Called for every draw, hit test and bounds query: keep it a
  // plain computation.
  virtual ruLinear::AffineMatrix evaluate() const = 0;
};

// What an item draws. Polymorphic, reference counted.
class VO_GR_API Geometry : public ru::ReferenceCount {
public:
  ~Geometry() override;
  // The box of the geometry in its local coordinates; invalid when empty.
  virtual ruGeom::BoundingBox getBoundingBox() const = 0;
  // True: triangles; false: lines.
  virtual bool isTriangles() const = 0;
};

// A mesh drawn as triangles or as lines, fixed when it was set. The mesh is held by reference and
// never copied.
class VO_GR_API MeshGeometry : public Geometry {
public:
  enum Flags : int { Triangles = 1, Lines = 2, UseStrips = 4 };
  MeshGeometry(ru::Reference<ruGeom::CompactMesh> mesh, int flags);
  ~MeshGeometry() override;
  ruGeom::BoundingBox getBoundingBox() const override;
  bool isTriangles() const override { return (flags_ & Triangles) != 0; }
  const ru::Reference<ruGeom::CompactMesh>& getMesh() const noexcept { return mesh_; }
  int getFlags() const noexcept { return flags_; }

private:
  ru::Reference<ruGeom::CompactMesh> mesh_;
  int flags_;
};

// One drawn thing, made by Draw::emit with the emitter's state at that moment. Reference
// counted: the source's DrawData, the database and its worlds hold it until the source emits
// again or its DrawData is cleared or destroyed.
class VO_GR_API DrawItem : public ru::ReferenceCount {
public:
  ~DrawItem() override;

  Space getSpace() const noexcept { return space_; }
  Type getType() const noexcept { return type_; }
  DepthInteraction getDepthInteraction() const noexcept { return depth_; }
  bool isActive() const noexcept { return active_; }
  bool isDrawable() const noexcept { return drawable_; }
  bool isPickable() const noexcept { return pickable_; }
  bool isSubItem() const noexcept { return subItem_; }
  // Emitted under a Draw opened with the overlay flag: drawn, never hit-tested.
  bool isOverlay() const noexcept { return overlay_; }
  int getLabel() const noexcept { return label_; }
  // The drawing (subsystem) id of the DrawContext it was emitted through.
  int getSubsystemId() const noexcept { return subsystemId_; }
  // The source given to Draw, and the ObjectDraw owning that source's DrawData (null unless one
  // registered itself with DrawData::setObjectDrawOwner).
  const void* getSource() const noexcept { return source_; }
  voDMG::ObjectDraw* getObjectDrawOwner() const noexcept { return owner_; }
  const ruString::CString& getDebugString() const noexcept { return debugString_; }
  const ruUtil::Color& getColor() const noexcept { return color_; }
  const ru::Reference<Shader>& getShader() const noexcept { return shader_; }
  const ru::Reference<Transformer>& getTransformer() const noexcept { return transformer_; }
  // Null when the item was emitted without a mesh (it then draws and picks nothing).
  Geometry* getGeometry() const noexcept { return geometry_.get(); }
  // The mesh of a mesh geometry; null otherwise.
  ruGeom::CompactMesh* getMesh() const noexcept;
  bool isTriangles() const noexcept { return geometry_ && geometry_->isTriangles(); }
  const voRES::ImageKey& getImageKey() const noexcept { return imageKey_; }
  // True when an image was set, even one whose key turned out invalid (a missing image): such an
  // item draws nothing rather than a plain quad.
  bool hasImageKey() const noexcept { return hasImage_; }
  // The transform set when emitted (local to world).
  const ruLinear::AffineMatrix& getTransform() const noexcept { return transform_; }
  // Local to world now: the transformer's answer when there is one, else the transform.
  ruLinear::AffineMatrix getLocalToWorld() const;
  // The world box of the geometry now; invalid without geometry.
  ruGeom::BoundingBox getWorldBoundingBox() const;
  // A sphere holding the mesh's vertices where the item is now: false without a mesh or
  // vertices. Kept between calls for an item without a transformer while its mesh's vertices stay
  // the same, so hit testing can pass over far items at the cost of a few loads.
  bool getWorldBoundingSphere(ruLinear::Point& centre, double& radius) const;
  bool contains(const ruString::CString& tag) const;
  // The same by a registry's handle (voSupport::TagRegistry); false for null.
  bool contains(const voSupport::Tag* tag) const;
  const std::vector<ruString::CString>& getTags() const noexcept { return tags_; }

private:
  friend class Draw;
  friend class DrawData;
  friend class World;
  friend class Database;
  friend void detachFromWorlds(DrawItem& item);
  DrawItem();
  // Copies the emitter state (not the memberships or the count).
  void copyStateFrom(const DrawItem& other);

  Space space_ = SpaceWorld;
  Type type_ = TypeOrdinary;
  DepthInteraction depth_ = DepthNormal;
  bool active_ = false;
  bool drawable_ = true;
  bool pickable_ = true;
  bool subItem_ = false;
  bool overlay_ = false;
  int label_ = 0;
  int subsystemId_ = 0;
  const void* source_ = nullptr;
  voDMG::ObjectDraw* owner_ = nullptr;
  ruString::CString debugString_;
  ruUtil::Color color_{1, 1, 1, 1};
  ru::Reference<Shader> shader_;
  ru::Reference<Transformer> transformer_;
  ru::Reference<Geometry> geometry_;
  voRES::ImageKey imageKey_;
  bool hasImage_ = false;
  ruLinear::AffineMatrix transform_;
  std::vector<ruString::CString> tags_;
  // The last world sphere and the vertex buffer it was worked out for (0: none yet).
  mutable std::uint64_t sphereVertices_ = 0;
  mutable ruLinear::Point sphereCentre_;
  mutable double sphereRadius_ = 0;
  // The worlds holding the item, with its place in each (see World).
  struct Membership;
  std::vector<std::unique_ptr<Membership>> memberships_;
};

// A group of items emitted through one drawing (subsystem) id.
class VO_GR_API DrawContext {
public:
  DrawContext(DrawSystem* system, int id) noexcept : system_(system), id_(id) {}
  DrawSystem* getDrawSystem() const noexcept { return system_; }
  int getID() const noexcept { return id_; }

private:
  DrawSystem* system_;
  int id_;
};

// The items of one source. Destroying or clearing it removes its items from every world of every
// database. Made by DrawSystem::getDrawData(source, true); whoever asked for it owns it and
// deletes it (a block the draw system made on its own for an undeclared source is the draw
// system's). A block that outlives its draw system keeps nothing but its source.
class VO_GR_API DrawData {
public:
  DrawData(const DrawData&) = delete;
  DrawData& operator=(const DrawData&) = delete;
  ~DrawData();

  // Removes every item from its worlds and drops them.
  void clear();
  const std::vector<ru::Reference<DrawItem>>& getItems() const noexcept { return items_; }
  const void* getSource() const noexcept { return source_; }
  // Marks the block as an ObjectDraw's, so its items answer that owner (see DrawItem).
  void setObjectDrawOwner(voDMG::ObjectDraw* owner) noexcept { owner_ = owner; }
  voDMG::ObjectDraw* getObjectDrawOwner() const noexcept { return owner_; }

private:
  friend class DrawSystem;
  friend class Draw;
  DrawData(DrawSystem* system, const void* source);

  DrawSystem* system_;
  const void* source_;
  voDMG::ObjectDraw* owner_ = nullptr;
  bool ownedBySystem_ = false;
  int lastId_ = -1;
  std::vector<ru::Reference<DrawItem>> items_;
};

// Counters of the GPU work a draw system did, for tests and diagnostics.
struct DrawStatistics {
  std::int64_t bufferUploads = 0;   // vertex and index buffers sent to the GPU
  std::int64_t uploadedBytes = 0;
  std::int64_t buffersFreed = 0;    // GPU buffers freed because their mesh buffer died
  std::int64_t textureUploads = 0;
  std::int64_t itemsDrawn = 0;      // items drawn by passes
  std::int64_t frames = 0;          // calls of draw that ran a graph
};

// One per host: the graph shared by every surface, the active database, drawing ids, the draw
// data of every source, the GPU resources and the OpenGL context they live in. Everything runs on
// the thread that created it.
// GPU buffers are cached by mesh buffer identity: re-emitting an unchanged mesh, or a copy of it,
// uploads nothing. When a mesh buffer dies or is written, libGeometry's release notification
// queues its identity and the GPU buffer is freed at the next draw. Each mesh buffer (vertices,
// normals, texture coordinates, colours, triangles, lines, attributes) is heard of on its own;
// triangles made from strips go with the vertex buffer.
class VO_GR_API DrawSystem {
public:
  // A draw system with its own off-screen OpenGL 3.3 core context (EGL, surfaceless platform).
  // Null when no context can be made, with the reason in `error` (when given) and on the debug
  // channel.
  static std::unique_ptr<DrawSystem> createOffscreen(ruString::CString* error = nullptr);
  // A draw system using the OpenGL context current on this thread (the host's window), which
  // must stay current whenever the draw system is used and outlive it. Null when no context is
  // current or it is older than 3.3, with the reason in `error`.
  static std::unique_ptr<DrawSystem> adoptCurrentContext(ruString::CString* error = nullptr);

  DrawSystem(const DrawSystem&) = delete;
  DrawSystem& operator=(const DrawSystem&) = delete;
  ~DrawSystem();

  Graph* getGraph() const noexcept;
  ru::Reference<Database> getActiveDatabase() const;
  // Makes `database` the one new items join; answers the former one.
  ru::Reference<Database> setActiveDatabase(ru::Reference<Database> database);

  // A new drawing id (never -1); freeID gives it back and destroys the draw data the system made
  // for undeclared sources last drawn under it.
  int allocateID();
  void freeID(int id);

  // The draw data of `source`; made when `create` is true (the caller then owns it), else null
  // when there is none.
  DrawData* getDrawData(const void* source, bool create);

  // Runs the graph up to `target`'s last state: exactly the nodes it depends on, once each,
  // sources first. Frees first the GPU buffers whose mesh buffers died since the last draw.
  // False (nothing drawn, a message on the debug channel) for a null target, one of another
  // graph, or dependencies in a cycle.
  bool draw(RenderTargetNode* target);
  // The nodes the last draw ran, in order.
  const std::vector<Node*>& getExecutionTrace() const noexcept;

  // A key for a frame buffer of that description; an invalid key (and a debug message) for a
  // width or height below 1 or beyond the device's limit.
  ruRen::FBOKey createFBOKey(const ruRen::FBOInfo& info);
  ruRen::DeviceContext* getRenDeviceContext() const noexcept;

  // A first render-target state added to the graph, named `name`, drawing into `key` (an invalid
  // key: the host's window), wrapped for a surface.
  ru::Reference<DataNodeStateInfo> createRenderTarget(const ruString::CString& name, const ruRen::FBOKey& key);

  const DrawStatistics& getStatistics() const noexcept;
  // Makes the system's context current on this thread (an adopted one is assumed current).
  bool makeCurrent();
  // Puts the item's mesh buffers on the GPU now (a draw would upload them anyway), so a host
  // can load ahead of the first frame. False, with a message, when the item would draw nothing.
  bool upload(const DrawItem& item);
  // Frees the GPU buffers whose mesh buffers died (draw and upload do it first anyway), for a
  // host that wants the memory back between frames.
  void releaseUnusedBuffers();

  struct Impl;
  Impl& impl() const noexcept { return *impl_; }

private:
  friend class DrawData;
  explicit DrawSystem(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// The sticky-state emitter: every setter stays until changed and applies to every following
// emit. Opening it finds or makes the source's draw data and clears the items emitted before,
// so emitting nothing removes them. A fresh Draw has space 0, type 0, depth interaction 0,
// inactive, drawable, pickable, not a sub-item, label 0, identity transform, white, and no
// shader, mesh, image, transformer or tags. With `overlay` true the items are drawn but never
// hit-tested (snap hints).
class VO_GR_API Draw {
public:
  Draw(DrawContext& context, const void* source, bool overlay);
  Draw(const Draw&) = delete;
  Draw& operator=(const Draw&) = delete;
  ~Draw();

  void setDebugString(const ruString::CString& text) { state_.debugString_ = text; }
  void setLabel(int label) noexcept { state_.label_ = label; }
  void setType(Type type) noexcept { state_.type_ = type; }
  void setType(int type) noexcept { state_.type_ = static_cast<Type>(type); }
  void setSpace(Space space) noexcept { state_.space_ = space; }
  void setSpace(int space) noexcept { state_.space_ = static_cast<Space>(space); }
  void setDepthInteraction(DepthInteraction depth) noexcept { state_.depth_ = depth; }
  void setDepthInteraction(int depth) noexcept { state_.depth_ = static_cast<DepthInteraction>(depth); }
  void setDrawable(bool drawable) noexcept { state_.drawable_ = drawable; }
  void setPickable(bool pickable) noexcept { state_.pickable_ = pickable; }
  void setSubItem(bool subItem) noexcept { state_.subItem_ = subItem; }
  void setActive(bool active) noexcept { state_.active_ = active; }

  // Replaces the current transform (local to world).
  void setTransform(const ruLinear::AffineMatrix& matrix) noexcept { state_.transform_ = matrix; }
  const ruLinear::AffineMatrix& getTransform() const noexcept { return state_.transform_; }
  void pushTransform();
  // Restores the transform pushed last; does nothing when nothing was pushed.
  void popTransform();
  // current = matrix * current: `matrix` acts on local coordinates first.
  void preMult(const ruLinear::AffineMatrix& matrix) noexcept;

  // The colour of items drawn with no shader (and the tint of their image).
  void setColor(float r, float g, float b, float a) noexcept { state_.color_ = ruUtil::Color(r, g, b, a); }
  void setColor(const ruUtil::Color& color) noexcept { state_.color_ = color; }
  void setColor(const ruUtil::Color8& color) noexcept { state_.color_ = color.toColor(); }
  // Null: the item colour (and image) alone.
  void setShader(ru::Reference<Shader> shader);
  const ru::Reference<Shader>& getShader() const noexcept { return state_.shader_; }
  const ruUtil::Color& getColor() const noexcept { return state_.color_; }

  // Triangles when `useTriangles` and the mesh has them, else its lines. Null clears the mesh.
  void setMesh(ru::Reference<ruGeom::CompactMesh> mesh, bool useTriangles = true);
  // Bits: 1 triangles, 2 lines, 4 the mesh's strips and normals as they are (5: triangles from
  // strips). Triangles win when both bits are set.
  void setMeshWithFlags(ru::Reference<ruGeom::CompactMesh> mesh, int flags);
  // The geometry the next items get (what setMesh made), to save and put back.
  const ru::Reference<Geometry>& getGeometry() const noexcept { return state_.geometry_; }
  void setGeometry(ru::Reference<Geometry> geometry) noexcept { state_.geometry_ = std::move(geometry); }

  void setImageKey(const voRES::ImageKey& key) {
    state_.imageKey_ = key;
    state_.hasImage_ = true;
  }
  void clearImageKey() {
    state_.imageKey_.reset();
    state_.hasImage_ = false;
  }
  const voRES::ImageKey& getImageKey() const noexcept { return state_.imageKey_; }
  bool hasImageKey() const noexcept { return state_.hasImage_; }
  // The transformer places the item (see Transformer); null for none.
  void setTransformer(ru::Reference<Transformer> transformer);
  void addTag(const ruString::CString& tag);
  // Removing an absent tag is harmless.
  void removeTag(const ruString::CString& tag);
  // The same by a registry's handle (voSupport::TagRegistry): the item carries the tag's name, so
  // a handle and its name are the same tag. A null handle changes nothing.
  void addTag(const voSupport::Tag* tag);
  void removeTag(const voSupport::Tag* tag);

  // One item with the current state: added to the source's draw data and to the database active
  // now (and every world of it whose filter accepts it). Never null.
  ru::Reference<DrawItem> emit();

  DrawData* getDrawData() const noexcept { return data_; }

private:
  DrawContext& context_;
  DrawData* data_;
  DrawItem state_;
  std::vector<ruLinear::AffineMatrix> stack_;
};

}  // namespace voGR

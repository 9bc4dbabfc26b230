#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/graphics/draw.h"
#include "platform/transaction/transaction.h"

#include <cstdint>

// Things the cursor can stick to while dragging (items), what sticking gives (results), where
// items come from (factories) and what vetoes them (filters). Which item wins is the snap
// manager's business; distances here are whole viewport pixels.
namespace voDMG {

// Higher beats lower. 3, 4 and 5 are left for the host's own point items.
enum SnapPriority : std::int32_t {
  SnapPriorityPlane = 0,
  SnapPriorityAxis = 1,
  SnapPriorityMesh = 2,
  SnapPriorityObjectCenter = 6,
};

class SnapResult;
class SnapResultDraw;

// Abstract. Made by factories, often anew at every snap step; lives as long as a reference.
class DMGUI_API SnapItem : public ru::ReferenceCount {
public:
  enum DistanceType : int {
    DistanceSnap = 0,  // close enough to catch?
    DistanceTear = 1,  // still close enough to hold once caught?
  };

  ~SnapItem() override;

  SnapPriority priority() const noexcept { return priority_; }
  int snapDistance() const noexcept { return snapDistance_; }
  void setSnapDistance(int pixels) noexcept { snapDistance_ = pixels; }
  int tearDistance() const noexcept { return tearDistance_; }
  void setTearDistance(int pixels) noexcept { tearDistance_ = pixels; }

  bool shouldSnap(const ruLinear::Point2& cursor) { return withinDistance(cursor, snapDistance_, DistanceSnap); }
  bool shouldTear(const ruLinear::Point2& cursor) { return !withinDistance(cursor, tearDistance_, DistanceTear); }
  // The result for `cursor`, its creator set to this item; null when the item has none.
  ru::Reference<SnapResult> snap(const ruLinear::Point2& cursor) const;
  // The document object (or part) the item stands for; invalid when none.
  SelectionItem creator() const { return getCreator(); }
  void draw(voGR::DrawContext& context, const ruLinear::Point2& cursor) { onDraw(context, cursor); }
  void endSnap() { onEndSnap(); }

protected:
  // The draw data is made on the draw system of the call info, when there is one.
  explicit SnapItem(SnapPriority priority);
  // Copies the fields, the draw data pointer included, as they stand; copies are not for the
  // live algorithm (they would both delete that block).
  SnapItem(const SnapItem& other);
  SnapItem& operator=(const SnapItem& other);

  voGR::DrawData* drawData() const noexcept { return drawData_; }

private:
  // May remember what it found for the onSnap that follows on the same thread.
  virtual bool withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType type) = 0;
  virtual ru::Reference<SnapResult> onSnap(const ruLinear::Point2& cursor) const = 0;
  virtual void onEndSnap();
  virtual void onDraw(voGR::DrawContext& context, const ruLinear::Point2& cursor);
  virtual SelectionItem getCreator() const = 0;

  SnapPriority priority_;
  int snapDistance_ = 8;
  int tearDistance_ = 8;
  voGR::DrawData* drawData_ = nullptr;
};

// What sticking gave: a world position, and as the case may be a line and a local frame.
// A result owns its draw and the draw holds the result, so the pair survives its last outside
// reference until setDraw(nullptr) breaks the cycle.
class DMGUI_API SnapResult : public ru::ReferenceCount {
public:
  SnapResult(const SnapResult&) = delete;
  SnapResult& operator=(const SnapResult&) = delete;
  ~SnapResult() override;

  bool hasPosition() const noexcept { return hasPosition_; }
  const ruLinear::Point& getPosition() const noexcept { return position_; }
  bool hasVector() const noexcept { return hasVector_; }
  const ruLinear::ParamLine& getVector() const noexcept { return vector_; }
  bool hasFrame() const noexcept { return hasFrame_; }
  const ruLinear::ParamPlane& getFrame() const noexcept { return frame_; }

  bool hasDraw() const noexcept { return draw_ != nullptr; }
  const SnapResultDraw* getDraw() const noexcept { return draw_; }
  // Takes `draw`, deleting the former one.
  void setDraw(SnapResultDraw* draw);

  const ru::Reference<SnapItem>& creator() const noexcept { return creator_; }
  void setCreator(ru::Reference<SnapItem> item) { creator_ = std::move(item); }
  // The document object the creating item names; invalid with no creator.
  SelectionItem datamodelCreator() const;

protected:
  SnapResult();
  void setPosition(const ruLinear::Point& position) noexcept {
    hasPosition_ = true;
    position_ = position;
  }
  void setVector(const ruLinear::ParamLine& vector) noexcept {
    hasVector_ = true;
    vector_ = vector;
  }
  void setFrame(const ruLinear::ParamPlane& frame) noexcept {
    hasFrame_ = true;
    frame_ = frame;
  }

private:
  bool hasPosition_ = false;
  bool hasVector_ = false;
  bool hasFrame_ = false;
  ruLinear::Point position_;
  ruLinear::ParamLine vector_;
  ruLinear::ParamPlane frame_;
  ru::Reference<SnapItem> creator_;
  SnapResultDraw* draw_ = nullptr;
};

// How a result shows itself. Holds its result counted (see SnapResult).
class DMGUI_API SnapResultDraw {
public:
  explicit SnapResultDraw(ru::Reference<SnapResult> result);
  SnapResultDraw(const SnapResultDraw&) = delete;
  SnapResultDraw& operator=(const SnapResultDraw&) = delete;
  virtual ~SnapResultDraw();

  void drawPosition(voGR::Draw& draw) const { onDrawPosition(draw); }
  void drawVector(voGR::Draw& draw) const { onDrawVector(draw); }
  void drawFrame(voGR::Draw& draw) const { onDrawFrame(draw); }
  ru::Reference<SnapResult> result() const { return result_; }

private:
  virtual void onDrawPosition(voGR::Draw& draw) const = 0;
  virtual void onDrawVector(voGR::Draw& draw) const = 0;
  virtual void onDrawFrame(voGR::Draw& draw) const = 0;

  ru::Reference<SnapResult> result_;
};

// Vetoes items; the host supplies concrete filters.
class DMGUI_API SnapFilter : public ru::ReferenceCount {
public:
  ~SnapFilter() override;
  // True keeps the item.
  virtual bool accept(SnapItem* item) = 0;
};

// Ordered by pointer value; the manager takes items out in that order.
using SnapItemSet = ru::set<ru::Reference<SnapItem>, ru::less<ru::Reference<SnapItem>>>;

class DMGUI_API SnapItemFactory : public ru::ReferenceCount {
public:
  ~SnapItemFactory() override;
  // Adds this factory's items to `items`.
  virtual void getItems(SnapItemSet& items) = 0;

protected:
  SnapItemFactory() = default;
};

}  // namespace voDMG

namespace voTXN {
// A snap result is never transacted state of its own.
inline std::size_t getSize(const ru::Reference<voDMG::SnapResult>&) { return 0; }
}  // namespace voTXN

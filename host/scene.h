#pragma once

// A print job as the host holds it: a document on its transaction manager, a printer and the parts
// loaded onto its bed, with the call info the libraries read (voSupport::ci()) entered for the
// scene's lifetime. The commands that load models (render, thumbnail, check) share it.

#include "platform/base/linear.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/document.h"
#include "platform/support/callinfo.h"

#include <memory>
#include <string>
#include <vector>

namespace voDMD {
class KLTPrinter;
}

namespace printprep {

struct ScenePart {
  std::string file;  // as given on the command line
  ru::Reference<voDMD::Object> object;
  int triangles = 0;
};

class Scene {
public:
  // A printer whose useable volume is `volume` (width, depth, height in mm), centred on the origin
  // in X and Y with the bed at z 0, as the printer drawing expects.
  explicit Scene(const ruLinear::Vector& volume, double minimumThickness = 0.8);
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  ~Scene();

  // Imports every file and sets the parts side by side along X on the bed, centred, resting on it.
  // Nothing is added when one file fails: false with "FILE: what is wrong" in `error`.
  bool load(const std::vector<std::string>& files, std::string& error);

  // Adds one part made from `mesh`, placed by `objToWorld`, named `file`; returns its object.
  voDMD::Object* addPart(const std::string& file, const ru::Reference<ruGeom::CompactMesh>& mesh,
                         const ruLinear::AffineMatrix& objToWorld);

  voDMD::Document& document() noexcept { return document_; }
  voSupport::CallInfo& callInfo() noexcept { return info_; }
  voDMD::KLTPrinter* printer() const noexcept { return printer_; }
  const std::vector<ScenePart>& parts() const noexcept { return parts_; }
  const ruLinear::Range3d& useableVolume() const noexcept { return useable_; }
  // The world box of part `index`, or of every part when negative.
  ruLinear::Range3d partsBox(int index = -1) const;

private:
  voDMA::TxnManager txn_;
  voDMD::Document document_;
  voSupport::CallInfo info_;
  std::unique_ptr<voSupport::CallScope> scope_;
  ruLinear::Range3d useable_;
  ru::Reference<voDMD::Object> printerObject_;
  voDMD::KLTPrinter* printer_ = nullptr;
  std::vector<ScenePart> parts_;
};

// Parses "WxH" (or "WxDxH" with `count` 3) of positive numbers; false when it is not that.
bool parseSize(const std::string& text, int count, std::vector<double>& values);

}  // namespace printprep

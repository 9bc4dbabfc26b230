#pragma once

#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/datamodel/export.h"
#include "platform/datamodel/meshhealth.h"
#include "platform/transaction/transaction.h"

#include <vector>

namespace ruGeom {
class CompactMesh;
}
namespace voDMD {
class KLTMesh;
}

// Document actions and analyses over the current document (the voDMD::Document of the call info).
namespace voDMA {

// The transaction manager of a host's documents, entered in the call info.
class VO_DMD_API TxnManager {
public:
  TxnManager() = default;
  TxnManager(const TxnManager&) = delete;
  TxnManager& operator=(const TxnManager&) = delete;

  voTXN::Manager* get() noexcept { return &manager_; }

private:
  voTXN::Manager manager_;
};

// Whether an analysed mesh is thick enough everywhere: no corner measured at or above zero and
// below the printer's minimumThickness, converted into the mesh's own coordinates (the vector of
// three components t / sqrt(3) through the inverse object-to-world matrix). True when there is no
// printer, no analysis, or nothing thin.
VO_DMD_API bool isPartThick(const voDMD::KLTMesh* mesh);

// The faces of the printer's useable volume that some visible printable mesh passes, each once, in
// the order -X, +X, -Y, +Y, bottom, top: a plane through the face with the face's axis normal
// (-x, +x, -y, +y, and +z for both bottom and top). Empty without a document or a printer.
VO_DMD_API std::vector<ruLinear::ParamPlane> kltGetOutOfBedPlanes();

// Every printable mesh of the current document, in document order.
VO_DMD_API ru::vector<voDMD::KLTMesh*> findKLTMeshes();

// Analyses, in one transaction, every printable mesh of the current document whose thickness
// analysis is missing or out of date (a new or changed mesh): what a host runs when it is idle, so
// the analyses stay current. Returns the number of meshes analysed.
VO_DMD_API int analysePendingThickness();

// Wall thickness at each triangle corner of `mesh` (three values a triangle, in mesh coordinates):
// the distance from the corner, along the inverted face normal, to the first other triangle hit;
// -1 where nothing is hit or the triangle has no normal. Uses every core.
VO_DMD_API std::vector<float> computeThickness(const ruGeom::CompactMesh& mesh);

// Health of a mesh's triangles (see analyseMeshHealth).
VO_DMD_API MeshHealth analyseMeshHealth(const ruGeom::CompactMesh& mesh);

} // namespace voDMA

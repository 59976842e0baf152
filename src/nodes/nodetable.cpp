#include "nodes/nodetable.h"

#include "nodes/attribaddnode.h"
#include "nodes/attribblurnode.h"
#include "nodes/attribcreatenode.h"
#include "nodes/attribfrommapnode.h"
#include "nodes/attribremovenode.h"
#include "nodes/attribrenamenode.h"
#include "nodes/attribscalenode.h"
#include "nodes/attribsetnode.h"
#include "nodes/attribtransfernode.h"
#include "nodes/calcvelocitynode.h"
#include "nodes/colorbyvelnode.h"
#include "nodes/collideclassicnode.h"
#include "nodes/exportsystemnode.h"
#include "nodes/importsystemnode.h"
#include "nodes/meshcurvaturenode.h"
#include "nodes/normalsnode.h"
#include "nodes/gridnode.h"
#include "nodes/granularoriginnode.h"
#include "nodes/granularsolvernode.h"
#include "nodes/linenode.h"
#include "nodes/mergenode.h"
#include "nodes/pointdeletenode.h"
#include "nodes/pointnode.h"
#include "nodes/reversenode.h"
#include "nodes/scatternode.h"
#include "nodes/sortpointsnode.h"
#include "nodes/splitnode.h"
#include "nodes/switchnode.h"
#include "nodes/triangulatenode.h"
#include "nodes/nullnode.h"
#include "nodes/writenode.h"
#include "nodes/xformnode.h"
#include "nodes/noisenode.h"
#include "nodes/copynode.h"
#include "nodes/deformnode.h"
#include "nodes/trailnode.h"
#include "nodes/sphoriginnode.h"
#include "nodes/sphsolvernode.h"
#include "nodes/timeshiftnode.h"
#include "nodes/cameranode.h"
#include "nodes/projectnode.h"
#include "nodes/pointmatchnode.h"
#include "nodes/meshernode.h"
#include "nodes/meshtovolumenode.h"
#include "nodes/particlemeshnode.h"
#include "nodes/particletovolumenode.h"
#include "nodes/voldomainnode.h"
#include "nodes/volumeaddnode.h"
#include "nodes/volumecsgnode.h"
#include "nodes/volumeerodenode.h"
#include "nodes/volumefilternode.h"
#include "nodes/volumegradientnode.h"
#include "nodes/volumeinvertnode.h"
#include "nodes/volumeresamplenode.h"
#include "nodes/volumesamplenode.h"
#include "nodes/volumescalenode.h"
#include "nodes/volumetilesnode.h"
#include "nodes/volumetomeshnode.h"
#include "nodes/gravitynode.h"
#include "nodes/makedynamicnode.h"
#include "nodes/enddynamicnode.h"
#include "nodes/originnode.h"
#include "nodes/clonenode.h"
#include "nodes/dustemitnode.h"
#include "nodes/particleburstnode.h"
#include "nodes/particleemitnode.h"
#include "nodes/emitnode.h"
#include "nodes/collidenode.h"
#include "nodes/forcenode.h"

#include <map>

namespace {

template <class T> BaseNode* make(NodeMaster* master)
{
    return new T(master);
}

const std::map<std::string, NodeMaker>& table()
{
    static const std::map<std::string, NodeMaker> t = {
        {"null", &make<NullNode>},
        {"attrib-add", &make<AttribAddNode>},
        {"attrib-blur", &make<AttribBlurNode>},
        {"attrib-create", &make<AttribCreateNode>},
        {"attrib-from-map", &make<AttribFromMapNode>},
        {"attrib-remove", &make<AttribRemoveNode>},
        {"attrib-rename", &make<AttribRenameNode>},
        {"attrib-scale", &make<AttribScaleNode>},
        {"attrib-set", &make<AttribSetNode>},
        {"attrib-transfer", &make<AttribTransferNode>},
        {"calc-velocity", &make<CalcVelocityNode>},
        {"color-by-vel", &make<ColorByVelNode>},
        {"collide-classic", &make<CollideClassicNode>},
        {"export-system", &make<ExportSystemNode>},
        {"import-system", &make<ImportSystemNode>},
        {"mesh-curvature", &make<MeshCurvatureNode>},
        {"normals", &make<NormalsNode>},
        {"grid", &make<GridNode>},
        {"granular-origin", &make<GranularOriginNode>},
        {"granular-solver", &make<GranularSolverNode>},
        {"line", &make<LineNode>},
        {"merge", &make<MergeNode>},
        {"point", &make<PointNode>},
        {"point-delete", &make<PointDeleteNode>},
        {"reverse", &make<ReverseNode>},
        {"scatter", &make<ScatterNode>},
        {"sort-points", &make<SortPointsNode>},
        {"split", &make<SplitNode>},
        {"switch", &make<SwitchNode>},
        {"triangulate", &make<TriangulateNode>},
        {"write", &make<WriteNode>},
        {"transform", &make<XformNode>},
        {"noise", &make<NoiseNode>},
        {"copy", &make<CopyNode>},
        {"deform", &make<DeformNode>},
        {"trail", &make<TrailNode>},
        {"sph-origin", &make<SPHOriginNode>},
        {"sph-solver", &make<SPHSolverNode>},
        {"timeshift", &make<TimeshiftNode>},
        {"camera", &make<CameraNode>},
        {"project", &make<ProjectNode>},
        {"point-match", &make<PointMatchNode>},
        {"mesher", &make<MesherNode>},
        {"mesh-to-volume", &make<MeshToVolumeNode>},
        {"particle-mesh", &make<ParticleMeshNode>},
        {"particle-to-volume", &make<ParticleToVolumeNode>},
        {"volume-add", &make<VolumeAddNode>},
        {"volume-difference", &make<VolumeDifferenceNode>},
        {"volume-erode", &make<VolumeErodeNode>},
        {"volume-filter", &make<VolumeFilterNode>},
        {"volume-gradient", &make<VolumeGradientNode>},
        {"volume-intersection", &make<VolumeIntersectionNode>},
        {"volume-invert", &make<VolumeInvertNode>},
        {"volume-resample", &make<VolumeResampleNode>},
        {"volume-sample", &make<VolumeSampleNode>},
        {"volume-scale", &make<VolumeScaleNode>},
        {"volume-tiles", &make<VolumeTilesNode>},
        {"volume-to-mesh", &make<VolumeToMeshNode>},
        {"volume-union", &make<VolumeUnionNode>},
        {"voldomain", &make<VolDomainNode>},
        {"gravity", &make<GravityNode>},
        {"make-dynamic", &make<MakeDynamicNode>},
        {"end-dynamic", &make<EndDynamicNode>},
        {"origin", &make<OriginNode>},
        {"clone", &make<CloneNode>},
        {"dust-emit", &make<DustEmitNode>},
        {"particle-burst", &make<ParticleBurstNode>},
        {"particle-emit", &make<ParticleEmitNode>},
        {"emit", &make<EmitNode>},
        {"collide", &make<CollideNode>},
        {"force", &make<ForceNode>},
    };
    return t;
}

} // namespace

NodeMaker findNodeMaker(const std::string& key)
{
    auto it = table().find(key);
    return it == table().end() ? nullptr : it->second;
}

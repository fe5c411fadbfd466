#include "DeformableReport.h"

#include <ostream>

using namespace osg;
using nlohmann::json;

json describeSurface(const SurfacePtr& s) {
    json j;
    j["degree"] = {s->getDimU(), s->getDimV()};
    j["knots"] = {s->getKnotsU().size(), s->getKnotsV().size()};
    j["controlPointGrid"] = {s->getNumControlPointsU(), s->getNumControlPointsV()};
    j["controlPoints"] = s->getControlPoints() ? s->getControlPoints()->size() : 0;
    j["trimCurves"] = s->getNumCurves();
    const auto& degrees = s->getDimensions();
    const auto& knots = s->getKnotLengths();
    const auto points = s->getCurveControlPointCounts();
    json loops = json::array();
    std::size_t curve = 0;
    for (UInt32 count : s->getCurvesPerLoop()) {
        json loop = json::array();
        for (UInt32 c = 0; c < count && curve < degrees.size(); ++c, ++curve)
            loop.push_back({{"degree", degrees[curve]},
                            {"knots", curve < knots.size() ? knots[curve] : 0u},
                            {"points", curve < points.size() ? points[curve] : 0u}});
        loops.push_back(loop);
    }
    j["trimLoops"] = loops;
    return j;
}

json describeSkin(const SkinAttachmentPtr& skin) {
    json clusters = json::array();
    for (const auto& cluster : skin->getJoints()) {
        if (!cluster) continue;
        double sum = 0;
        for (const IndexWeight& w : cluster->getWeights())
            sum += w.weight;
        const NodePtr joint = cluster->getNode();
        clusters.push_back({{"joint", joint ? json(joint->getName()) : json()},
                            {"weights", cluster->getWeights().size()},
                            {"weightSum", sum}});
    }
    return {{"clusters", clusters}};
}

json describeVertexCache(const TimeShapeCachePtr& cache) {
    const auto& shapes = cache->getShapes();
    json j;
    j["name"] = cache->getName();
    j["frames"] = shapes.size();
    j["points"] = shapes.empty() ? 0 : shapes.front()->getPositions().size();
    if (!shapes.empty()) j["seconds"] = {shapes.front()->getTime(), shapes.back()->getTime()};
    return j;
}

void printDeformables(std::ostream& os, const json& n, const std::string& indent) {
    if (n.contains("surface")) {
        const json& s = n["surface"];
        os << indent << "surface degree (" << s["degree"][0] << " " << s["degree"][1]
           << "), knots (" << s["knots"][0] << " " << s["knots"][1] << "), " << s["controlPoints"]
           << " control points (" << s["controlPointGrid"][0] << "x" << s["controlPointGrid"][1]
           << "), " << s["trimCurves"] << " trim curves in " << s["trimLoops"].size() << " loops\n";
        for (std::size_t l = 0; l < s["trimLoops"].size(); ++l) {
            os << indent << "  trim loop " << l << ":";
            for (const auto& c : s["trimLoops"][l])
                os << " [degree " << c["degree"] << ", " << c["knots"] << " knots, " << c["points"]
                   << " points]";
            os << "\n";
        }
    }
    if (n.contains("skin")) {
        const json& clusters = n["skin"]["clusters"];
        os << indent << "skin: " << clusters.size() << " clusters\n";
        for (const auto& c : clusters)
            os << indent << "  cluster -> "
               << (c["joint"].is_null() ? std::string("<no joint>") : c["joint"].get<std::string>())
               << ": " << c["weights"] << " weights, sum " << c["weightSum"].get<double>() << "\n";
    }
    if (n.contains("vertexCache")) {
        const json& c = n["vertexCache"];
        os << indent << "vertex cache";
        if (c.contains("name") && !c["name"].get<std::string>().empty())
            os << " " << c["name"].get<std::string>();
        os << ": " << c["frames"] << " frames of " << c["points"] << " points";
        if (c.contains("seconds"))
            os << ", " << c["seconds"][0].get<double>() << " s to " << c["seconds"][1].get<double>()
               << " s";
        os << "\n";
    }
}

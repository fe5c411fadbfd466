#include "AnimationView.h"

#include <iomanip>
#include <ostream>
#include <sstream>
#include <utility>
#include <vector>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksConstraintManager.h>

using nlohmann::json;
using namespace osg;

namespace {

const char* blendModeName(AnimNode::BlendMode mode) {
    switch (mode) {
    case AnimNode::BlendMode::Override:
        return "override";
    case AnimNode::BlendMode::OverridePassthrough:
        return "overridePassthrough";
    case AnimNode::BlendMode::Additive:
        break;
    }
    return "additive";
}

std::string number(double v) {
    std::ostringstream os;
    os << std::setprecision(6) << v;
    return os.str();
}

json matrixRows(const Matrix& m) {
    json rows = json::array();
    for (int r = 0; r < 4; ++r)
        rows.push_back({m.at(r, 0), m.at(r, 1), m.at(r, 2), m.at(r, 3)});
    return rows;
}

std::string printRows(const json& rows) {
    std::ostringstream os;
    os << std::setprecision(6) << "(";
    for (std::size_t r = 0; r < rows.size(); ++r) {
        os << (r ? " (" : "(");
        for (std::size_t c = 0; c < rows[r].size(); ++c)
            os << (c ? " " : "") << rows[r][c].get<double>();
        os << ")";
    }
    os << ")";
    return os.str();
}

} // namespace

json describeAnimation(const NodePtr& node) {
    AnimAttachmentPtr a = ksAnimManager::the().getAnimAttachment(node);
    if (!a || !a->getRoot()) return json();
    json channels = json::array(), blocks = json::array();
    UInt32 keyed = 0, keys = 0;
    auto addCurves = [&](const std::vector<AnimCurvePtr>& curves, const std::string& block) {
        for (const auto& c : curves) {
            const auto& points = c->getControlPoints();
            if (points.empty()) continue;
            ++keyed;
            keys += c->size();
            json e{{"channel", c->getChannel() + c->getComponent()},
                   {"keys", c->size()},
                   {"start", points.front().point[0]},
                   {"end", points.back().point[0]}};
            if (!block.empty()) e["block"] = block;
            channels.push_back(std::move(e));
        }
    };
    std::vector<AnimCurvePtr> ungrouped;
    for (const auto& child : a->getRoot()->getChildren())
        if (auto c = AnimCurvePtr::dcast(child)) ungrouped.push_back(c);
    addCurves(ungrouped, "");
    for (const auto& child : a->getRoot()->getChildren()) {
        if (AnimCurvePtr::dcast(child)) continue;
        std::vector<AnimCurvePtr> curves;
        child->collectCurves(curves);
        std::size_t withKeys = 0;
        for (const auto& c : curves)
            withKeys += c->size() > 0;
        // A block without keyed curves changes nothing: not worth a line.
        if (withKeys == 0) continue;
        blocks.push_back({{"name", child->getName()},
                          {"blendMode", blendModeName(child->getBlendMode())},
                          {"weight", child->getWeight()},
                          {"curves", withKeys}});
        addCurves(curves, child->getName());
    }
    if (keyed == 0) return json();
    json j{{"curves", keyed}, {"keys", keys}, {"channels", std::move(channels)}};
    if (!blocks.empty()) j["blocks"] = std::move(blocks);
    return j;
}

void printAnimation(std::ostream& os, const json& a, const std::string& indent) {
    os << indent << "animation: " << a["curves"] << " curves, " << a["keys"] << " keys\n";
    for (const auto& c : a["channels"]) {
        os << indent << "  " << c["channel"].get<std::string>() << ": " << c["keys"] << " keys, "
           << number(c["start"].get<double>()) << " .. " << number(c["end"].get<double>()) << " s";
        if (c.contains("block")) os << " in \"" << c["block"].get<std::string>() << "\"";
        os << "\n";
    }
    if (a.contains("blocks"))
        for (const auto& b : a["blocks"])
            os << indent << "  block \"" << b["name"].get<std::string>()
               << "\": " << b["blendMode"].get<std::string>() << ", weight "
               << number(b["weight"].get<double>()) << "%, " << b["curves"] << " curves\n";
}

unsigned evaluateSceneAt(const NodePtr& root, double seconds) {
    ksAnimEvaluator& e = ksAnimEvaluator::the();
    e.updateSceneAnimParentMap(root);
    unsigned n = e.evaluate(seconds);
    // Constraints follow the animated nodes they look at.
    ksConstraintManager::the().evaluate(root);
    return n;
}

void addEvaluatedTransforms(json& tree, const NodePtr& root, double seconds) {
    if (!root || !tree.is_object()) return;
    // Walks the description and the nodes side by side without recursing.
    std::vector<std::pair<json*, NodePtr>> stack{{&tree, root}};
    while (!stack.empty()) {
        auto [j, node] = stack.back();
        stack.pop_back();
        (*j)["evaluated"] = {{"time", seconds},
                             {"local", matrixRows(node->getLocalMatrix())},
                             {"world", matrixRows(node->getWorldMatrix())}};
        const auto& children = node->getChildren();
        if (!j->contains("children")) continue;
        json& described = (*j)["children"];
        if (described.size() != children.size()) continue;
        for (std::size_t i = 0; i < children.size(); ++i)
            stack.emplace_back(&described[i], children[i]);
    }
}

void printEvaluated(std::ostream& os, const json& e, const std::string& indent) {
    os << indent << "at " << number(e["time"].get<double>())
       << " s: local=" << printRows(e["local"]) << "\n"
       << indent << "  world=" << printRows(e["world"]) << "\n";
}

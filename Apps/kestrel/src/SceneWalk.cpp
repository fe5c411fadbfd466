#include "SceneWalk.h"

#include <vector>

void SceneWalk::forEach(const osg::NodePtr& root, const Visit& fn) {
    if (!root) return;
    struct Item {
        osg::NodePtr node;
        osg::Matrix parentWorld;
        std::size_t depth;
    };
    osg::Matrix above;
    if (root->getParent()) above = root->getParent()->getWorldMatrix();
    std::vector<Item> stack{{root, above, 0}};
    while (!stack.empty()) {
        Item item = std::move(stack.back());
        stack.pop_back();
        osg::Matrix world = item.parentWorld * item.node->getLocalMatrix();
        if (!fn(item.node, world, item.depth)) continue;
        const auto& children = item.node->getChildren();
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.push_back({*it, world, item.depth + 1});
    }
}

// Walks over node trees without recursion: file hierarchies may be
// thousands of levels deep.
#pragma once

#include <utility>
#include <vector>

#include "qdxsdk/node.h"

namespace qdxsdk::detail {

// Calls visit(node) for root and every node below it, parents before their
// children and children in order. visit returns false to stop the walk;
// VisitPreOrder then returns false too.
template <class Visit> bool VisitPreOrder(QdxNode* root, Visit&& visit) {
    std::vector<QdxNode*> pending;
    if (root) pending.push_back(root);
    while (!pending.empty()) {
        QdxNode* node = pending.back();
        pending.pop_back();
        if (!visit(node)) return false;
        for (int i = node->GetChildCount(); i-- > 0;)
            pending.push_back(node->GetChild(i));
    }
    return true;
}

} // namespace qdxsdk::detail

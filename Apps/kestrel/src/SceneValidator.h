#pragma once
// Structural and semantic checks of an imported scene: index ranges,
// primitive lengths against the index, property counts against the index
// mapping, NaN and infinite values, missing textures, references to nothing
// (texture channels without an image, skin clusters without a node) and
// degenerate polygons.
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Node.h>

struct ValidationIssue {
    enum Severity { Warning, Error };
    Severity severity = Error;
    std::string check; // short key, e.g. "indexRange"
    std::string node;  // path of node names from the root, "/" separated
    std::string text;
};

class ValidationReport {
public:
    void add(ValidationIssue issue) { _issues.push_back(std::move(issue)); }
    const std::vector<ValidationIssue>& issues() const { return _issues; }
    std::size_t errorCount() const;
    std::size_t warningCount() const { return _issues.size() - errorCount(); }

    nlohmann::json toJson() const;
    void print(std::ostream& os, const std::string& file) const;

private:
    std::vector<ValidationIssue> _issues;
};

class SceneValidator {
public:
    static ValidationReport check(const osg::NodePtr& root,
                                  const std::vector<std::string>& missingTextures);
};

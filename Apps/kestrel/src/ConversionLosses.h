#pragma once
// What a conversion cannot carry into its target: a list of losses found by
// looking at the imported scene with the rules of the target's writer.
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Node.h>

struct ConversionLoss {
    std::string kind; // short machine-readable key, e.g. "bumpMaps"
    unsigned long long count = 0;
    std::string text; // one readable sentence
};

class ConversionLosses {
public:
    // exportOptions: the option string the writer will see.
    static std::vector<ConversionLoss> find(const osg::NodePtr& root, const std::string& outputFile,
                                            const std::string& exportOptions);
    static nlohmann::json toJson(const std::vector<ConversionLoss>& losses);
};

#pragma once
// The material service.
#include <string>

#include <kestrel/osg/Material.h>

class ksMaterials {
public:
    static std::string getName(const osg::MaterialPtr& material);
    // Names the material; recordChange as in ksNodeUtils::setName.
    static void setName(const osg::MaterialPtr& material, const std::string& name,
                        bool recordChange = true);
    // The material that is rendered for this one. Materials here are never
    // indirect, so it is the material itself.
    static osg::MaterialPtr getRealMaterial(const osg::MaterialPtr& material);
};

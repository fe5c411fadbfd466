#pragma once
// Scene data: the settings and root node of each open scene.
//
// Scene 0 is the current scene and always exists; it starts with Z up and
// millimetres. Length unit codes: 0 undefined, 1 millimetre, 2 centimetre,
// 3 decimetre, 4 metre, 5 kilometre, 6 inch, 7 foot, 8 yard, 9 mile.
// Up axis codes: 0 Y up, 1 Z up.
#include <memory>
#include <string>
#include <vector>

#include <kestrel/osg/Node.h>

class ksSceneData {
public:
    enum LengthUnit : int {
        Undefined = 0,
        Millimeter = 1,
        Centimeter = 2,
        Decimeter = 3,
        Meter = 4,
        Kilometer = 5,
        Inch = 6,
        Foot = 7,
        Yard = 8,
        Mile = 9,
    };
    enum UpAxis : int { YUp = 0, ZUp = 1 };

    ksSceneData();
    int getLengthUnit() const { return _unit; }
    void setLengthUnit(int unit) { _unit = unit; }
    int getUpAxis() const { return _up; }
    void setUpAxis(int axis) { _up = axis; }
    bool isZUp() const { return _up == ZUp; }
    // The scene's root node (a group named "Root").
    osg::NodePtr getRootNode() const { return _root; }
    void setRootNode(const osg::NodePtr& root) { _root = root; }

    // Millimetres per unit (1 for undefined); names "mm", "cm", "dm", "m",
    // "km", "in", "ft", "yd", "mi"; parseLengthUnit accepts those names and
    // the codes, and returns -1 for anything else.
    static double getMillimetersPerUnit(int unit);
    static const char* getLengthUnitName(int unit);
    static int parseLengthUnit(const std::string& text);

private:
    int _unit = Millimeter;
    int _up = ZUp;
    osg::NodePtr _root;
};

class ksSceneDataManager {
public:
    // Scene index's data; null for an index that does not exist.
    static ksSceneData* getSceneData(int index = 0);
    static int getSceneCount();
    // Adds a scene and returns its index.
    static int addScene();
    // Back to a single scene with default settings and an empty root.
    static void reset();
};

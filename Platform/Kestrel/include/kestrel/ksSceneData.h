#pragma once
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

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

#include <kestrel/ksSceneData.h>
#include <kestrel/osg/Node.h>

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

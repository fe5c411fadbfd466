#pragma once
// Scene-wide conventions of the host's renderer.
class ksOpenSGExt {
public:
    // True when the current scene (ksSceneDataManager scene 0) is Z up.
    static bool isCameraZUp();
};

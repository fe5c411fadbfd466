#include <memory>
#include <vector>

#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/Group.h>

bool ksOpenSGExt::isCameraZUp() {
    return ksSceneDataManager::getSceneData(0)->isZUp();
}

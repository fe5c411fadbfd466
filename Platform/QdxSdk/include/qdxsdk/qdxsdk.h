// The whole SDK.
#pragma once

#include "qdxsdk/anim.h"
#include "qdxsdk/attributes.h"
#include "qdxsdk/classid.h"
#include "qdxsdk/conversion_notes.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/io.h"
#include "qdxsdk/material.h"
#include "qdxsdk/node.h"
#include "qdxsdk/object.h"
#include "qdxsdk/point_cache.h"
#include "qdxsdk/property.h"
#include "qdxsdk/scene.h"
#include "qdxsdk/time.h"
#include "qdxsdk/tove_cache.h"
#include "qdxsdk/types.h"

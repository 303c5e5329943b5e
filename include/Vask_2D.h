// The one include a user of Vask2D needs: it brings every public header.
#pragma once
#include "Vask2DApi.h"
#include "VaskException.h"
#include "VaskVersion.h"
#include "MsgBase.h"
#include "Vector2.h"
#include "Point2.h"
#include "Triangle2.h"
#include "Predicates2.h"
#include "freeFunctions.h"

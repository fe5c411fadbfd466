#pragma once
// Animation: curves, the animation node tree and the animation attachment.
//
// An AnimAttachment on a node keeps a tree of AnimNodes under its root.
// Curves (AnimCurve, an AnimNode) animate one component of one channel of
// the node ("translation"/"X", "visible"/"" ...). Curves directly under the
// root are "ungrouped"; named group nodes ("blocks") hold curves of one
// take or layer. ksAnimManager creates, finds and groups curves.
//
// A curve is a list of control points (time in seconds, value), each with
// in and out tangents relative to the point and an interpolation code for
// the segment before (inType) and after (outType) it:
//   0 step: the value holds until the next point
//   1 linear
//   2 smooth: cubic with automatic (Catmull-Rom) tangents
//   3 cubic through points sampled on frames, with the stored tangents
//   5 cubic with the stored tangents
// A cubic segment from p to q is the Bezier (p, p + out(p), q + in(q), q),
// in time and value; tangents are (time offset, value offset).
#include <kestrel/osg/AnimAttachment.h>
#include <kestrel/osg/AnimCurve.h>
#include <kestrel/osg/AnimNode.h>

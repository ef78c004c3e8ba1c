// The descriptor tools: an image and keypoints in, a descriptor store out.
//
//   DesSift / DesSurf a.pgm DesA.xml [KeyA.xml]
//   DesSimp / DesRiff / DesRihog / DesRUHOG / DesForapro a.pgm DesA.xml [key=KeyA.xml option=value ...]
//     (descriptors/proprios.hpp)
#pragma once

void DesSift(int argc, char** argv);
void DesSurf(int argc, char** argv);

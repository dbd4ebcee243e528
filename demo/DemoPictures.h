#pragma once

#include "panelctl/picture/GreyPicture.h"

namespace Vantor {

// The pictures that the demo draws, not yet dithered. Their shades are kept where the
// diffused error does not push a pixel above 255, as it would wrap and leave specks.
namespace DemoPictures {

GreyPicture makePlanet(unsigned int width, unsigned int height);
GreyPicture makeTestCard(unsigned int width, unsigned int height);
GreyPicture makeRipples(unsigned int width, unsigned int height);
GreyPicture makeMountains(unsigned int width, unsigned int height);

// A background and two windows to lie on it.
GreyPicture makeDesktop(unsigned int width, unsigned int height);
GreyPicture makeLevels(unsigned int width, unsigned int height);
GreyPicture makeDial(unsigned int width, unsigned int height);

} // namespace DemoPictures

} // namespace Vantor

#pragma once

// All of the library.
#include <stillora/Document.h>
#include <stillora/Error.h>
#include <stillora/Export.h>
#include <stillora/Files.h>
#include <stillora/Localization.h>
#include <stillora/Movie.h>
#include <stillora/Photos.h>
#include <stillora/Picture.h>
#include <stillora/Sounds.h>
#include <stillora/Types.h>
#include <stillora/Waveform.h>

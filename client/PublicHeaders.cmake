# What users of the client library may include, as <stillora/...>: a line for each header.
set(STILLORA_PUBLIC_HEADERS
    audio/MORAudioWaveImage.h
    audio/MORAudioWaveImageMetadata.h
    client/ClientError.h
    client/Document.h
    client/DocumentCheck.h
    client/Localization.h
    client/MovieMaker.h
    client/MoviePlan.h
    client/MovieSettings.h
    client/MovieTitle.h
    client/NaturalOrder.h
    client/PhotoCheck.h
    client/PhotoListing.h
    client/SoundCheck.h
    items/MORPhoto.h
    items/MORSoundtrack.h
    platform/dispatch/DispatchQueue.h
    platform/foundation/NSError.h
    platform/foundation/NSURL.h
    platform/graphics/NSImage.h
    platform/media/AVURLAsset.h
    platform/system/LaunchServices.h
    platform/system/NSClassRegistry.h
    util/MORImageCategory.h
    util/MORPalvineCommons.h
    util/MORURLCategory.h)

# The public headers below `source`, and those that they include.
function(stillora_installed_headers source result)
    set(waiting ${STILLORA_PUBLIC_HEADERS})
    set(found "")
    while(waiting)
        list(POP_FRONT waiting header)
        if(NOT header IN_LIST found)
            list(APPEND found ${header})
            file(STRINGS ${source}/${header} lines REGEX "^#include \".+\"$")
            list(TRANSFORM lines REPLACE "^#include \"(.+)\"$" "\\1")
            list(APPEND waiting ${lines})
        endif()
    endwhile()
    set(${result} ${found} PARENT_SCOPE)
endfunction()

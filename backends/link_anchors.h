#pragma once

// One empty function a format. Calling it ties the format's object file, and with it the static initialiser that
// registers its descriptors, into a statically linked program.
void forceLinkGxfMediaObj();
void forceLinkMxfMediaObj();
void forceLinkAesMediaObj();
void forceLinkQtMediaObj();
void forceLinkDvMediaObj();
void forceLinkAifMediaObj();
void forceLinkWavMediaObj();
void forceLinkMpegMediaObj();
void forceLinkMpeg4MediaObj();
void forceLinkAvcMediaObj();
void forceLinkDnxhdMediaObj();
void forceLinkVbiMediaObj();
void forceLink436mMediaObj();
void forceLinkNullMediaObj();
void forceLinkStreamedMediaObj();
void forceLinkAacMediaObj();
void forceLinkTsMediaObj();
void forceLinkProresMediaObj();
void forceLinkJpeg2000MediaObj();

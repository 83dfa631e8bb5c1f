#pragma once

#include "editor/model/Annotation.h"

#include <QImage>
#include <QUuid>
#include <optional>

class QPainter;

namespace qm {

class AnnotationDocument;
class EditorModel;

// Draws the capture and every mark in image pixels, uncropped and without backdrop: what the
// canvas shows (under its own zoom transform). `skip` leaves one mark out.
void paintDocument(QPainter& painter, const AnnotationDocument& document, const QUuid& skip = {});

// The part of the capture the finished image keeps, in whole pixels: the crop, or the whole
// capture when there is none (or it is empty, or all of it).
QRect exportArea(const AnnotationDocument& document);

// The finished image: the capture with every mark, cropped, on `backdrop` if one is given.
// Pixel size equals the capture's (or the crop's) plus the backdrop's padding. Opaque captures
// give Format_RGB32, others Format_ARGB32_Premultiplied; the device pixel ratio is 1.
QImage flatten(const AnnotationDocument& document, const std::optional<BackgroundStyle>& backdrop);
// The finished image of an editor: its document on its backdrop.
QImage flatten(const EditorModel& model);

} // namespace qm

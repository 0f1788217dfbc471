#version 300 es
// Static annotations over the composed picture, fixed in output space, with
// the caption above them.
precision highp float;
precision highp int;

// 0 output width, height (pixels), annotation count, corner radius
// 1 screen rectangle; 2 caption rectangle; 3 unused
uniform vec4 uPass[4];
// Three rows an annotation: geometry, colour, options (kind, line width).
// Kinds: 0 rectangle, 1 circle, 2 arrow, 3 mosaic. Geometry is a rectangle,
// or an arrow's start and end points, normalised to the output.
uniform vec4 uAnnotations[48];
uniform int uRowsTopFirst;

// The composed picture, same size and row order as the target.
uniform sampler2D uImage;
uniform sampler2D uCaption;

out vec4 fragColor;

// Mosaic cells across the output's width.
const float mosaicCellsAcross = 60.0;

float coverage(float distance) { return clamp(0.5 - distance, 0.0, 1.0); }

float boxDistance(vec2 point, vec4 rect) {
    vec2 halfSize = rect.zw * 0.5;
    vec2 q = abs(point - rect.xy - halfSize) - halfSize;
    return length(max(q, 0.0)) + min(max(q.x, q.y), 0.0);
}

// Close to the true distance near the outline of an ellipse inscribed in a
// rectangle, which is all an outline needs.
float ellipseDistance(vec2 point, vec4 rect) {
    vec2 radii = max(rect.zw * 0.5, vec2(1e-3));
    vec2 offset = point - rect.xy - radii;
    float level = length(offset / radii);
    float gradient = length(offset / (radii * radii)) / max(level, 1e-4);
    return (level - 1.0) / max(gradient, 1e-4);
}

float segmentDistance(vec2 point, vec2 a, vec2 b) {
    vec2 ab = b - a;
    float t = clamp(dot(point - a, ab) / max(dot(ab, ab), 1e-4), 0.0, 1.0);
    return length(point - a - t * ab);
}

float triangleDistance(vec2 p, vec2 p0, vec2 p1, vec2 p2) {
    vec2 e0 = p1 - p0, e1 = p2 - p1, e2 = p0 - p2;
    vec2 v0 = p - p0, v1 = p - p1, v2 = p - p2;
    vec2 pq0 = v0 - e0 * clamp(dot(v0, e0) / dot(e0, e0), 0.0, 1.0);
    vec2 pq1 = v1 - e1 * clamp(dot(v1, e1) / dot(e1, e1), 0.0, 1.0);
    vec2 pq2 = v2 - e2 * clamp(dot(v2, e2) / dot(e2, e2), 0.0, 1.0);
    float s = sign(e0.x * e2.y - e0.y * e2.x);
    vec2 d = min(min(vec2(dot(pq0, pq0), s * (v0.x * e0.y - v0.y * e0.x)),
                     vec2(dot(pq1, pq1), s * (v1.x * e1.y - v1.y * e1.x))),
                 vec2(dot(pq2, pq2), s * (v2.x * e2.y - v2.y * e2.x)));
    return -sqrt(d.x) * sign(d.y);
}

float arrowDistance(vec2 point, vec2 start, vec2 end, float lineWidth) {
    vec2 along = end - start;
    float length_ = length(along);
    if (length_ < 1e-3) {
        return length(point - start) - lineWidth * 0.5;
    }
    vec2 direction = along / length_;
    vec2 normal = vec2(-direction.y, direction.x);
    float headLength = min(max(lineWidth * 4.0, 10.0), length_ * 0.6);
    float headHalfWidth = headLength * 0.6;
    vec2 headBase = end - direction * headLength;
    float shaft = segmentDistance(point, start, headBase + direction * 0.5) - lineWidth * 0.5;
    float head = triangleDistance(point, end, headBase + normal * headHalfWidth, headBase - normal * headHalfWidth);
    return min(shaft, head);
}

vec3 imageAt(vec2 pixel) {
    vec2 outputSize = uPass[0].xy;
    vec2 clamped = clamp(pixel, vec2(0.0), outputSize - 1.0);
    float row = uRowsTopFirst == 1 ? clamped.y : outputSize.y - 1.0 - clamped.y;
    return texelFetch(uImage, ivec2(int(clamped.x), int(row)), 0).rgb;
}

vec3 mosaic(vec2 pixel, vec4 rect) {
    float cell = max(floor(uPass[0].x / mosaicCellsAcross), 2.0);
    vec2 cellOrigin = rect.xy + floor((pixel - rect.xy) / cell) * cell;
    vec2 cellEnd = min(cellOrigin + cell, rect.xy + rect.zw);
    // The mean of four points of the cell.
    vec2 quarter = (cellEnd - cellOrigin) * 0.25;
    return 0.25 * (imageAt(cellOrigin + quarter) + imageAt(cellOrigin + vec2(3.0, 1.0) * quarter) +
                   imageAt(cellOrigin + vec2(1.0, 3.0) * quarter) + imageAt(cellOrigin + 3.0 * quarter));
}

void main() {
    vec2 outputSize = uPass[0].xy;
    vec2 pixel = vec2(gl_FragCoord.x, uRowsTopFirst == 1 ? gl_FragCoord.y : outputSize.y - gl_FragCoord.y);
    float minimumMeasure = min(outputSize.x, outputSize.y);
    vec3 color = texelFetch(uImage, ivec2(gl_FragCoord.xy), 0).rgb;

    int count = int(uPass[0].z + 0.5);
    for (int i = 0; i < count; ++i) {
        vec4 geometry = uAnnotations[i * 3] * vec4(outputSize, outputSize);
        vec3 annotationColor = uAnnotations[i * 3 + 1].rgb;
        int kind = int(uAnnotations[i * 3 + 2].x + 0.5);
        float lineWidth = max(uAnnotations[i * 3 + 2].y * minimumMeasure, 1.0);
        if (kind == 3) {
            float inside = coverage(boxDistance(pixel, geometry));
            if (inside > 0.0) {
                color = mix(color, mosaic(pixel, geometry), inside);
            }
            continue;
        }
        float distance;
        if (kind == 0) {
            distance = abs(boxDistance(pixel, geometry)) - lineWidth * 0.5;
        } else if (kind == 1) {
            distance = abs(ellipseDistance(pixel, geometry)) - lineWidth * 0.5;
        } else {
            distance = arrowDistance(pixel, geometry.xy, geometry.zw, lineWidth);
        }
        color = mix(color, annotationColor, coverage(distance));
    }

    vec4 captionRect = uPass[2] * vec4(outputSize, outputSize);
    if (captionRect.z > 0.0 && captionRect.w > 0.0) {
        vec2 inside = (pixel - captionRect.xy) / captionRect.zw;
        if (all(greaterThanEqual(inside, vec2(0.0))) && all(lessThanEqual(inside, vec2(1.0)))) {
            vec4 caption = texture(uCaption, inside);
            color = color * (1.0 - caption.a) + caption.rgb;
        }
    }
    fragColor = vec4(color, 1.0);
}

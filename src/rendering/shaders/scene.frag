#version 300 es
// The whole scene in one pass: background, shadowed rounded screen seen
// through the camera (with motion blur between two cameras), click effect and
// cursor inside the view, device frame, webcam, caption.
//
// Each optional layer is compiled in only when a frame needs it (the
// RILO_... switches, defined to 0 or 1 ahead of this text): software
// rasterisers run both sides of a branch, so a skipped layer must not be
// there at all. RILO_SCREEN_INTERIOR draws the pixels well inside the
// screen's rounded edge, which the screen covers whole.
precision highp float;
precision highp int;

// Rows of the scene record; rectangles are normalised to the output size.
//  0 output width, height (pixels), corner radius (fraction), background mode
//  1 first colour; 2 second colour; 3 background image size
//  4 screen rectangle; 5 device frame rectangle; 6 frame present, rotated
//  7 source rectangle; 8 camera centre, scale, cursor visible
//  9 blur camera centre, scale, blur on
// 10 cursor position, click progress (-1 none), click style
// 11 cursor size, hot spot (points); 12 click position; 13 accent colour
// 14 webcam rectangle; 15 shown, mirrored, source aspect, rectangle aspect
// 16 1, border opacity, corner radius, border width (pixels)
// 17 shadow on, shadow opacity, shadow offset, shadow softness (at 1080p)
// 18 caption rectangle
uniform vec4 uScene[19];
// 1 when framebuffer row 0 is the top of the picture (offscreen targets read
// back top row first), 0 for a bottom-up window framebuffer.
uniform int uRowsTopFirst;

// Decoded frames: RGBA where RILO_SCREEN_RGBA or RILO_WEBCAM_RGBA say so,
// otherwise luma in plane 0 and interleaved Cb, Cr in plane 1. The matrix and
// offset take sampled Y, Cb, Cr straight to RGB.
uniform sampler2D uScreenPlane0;
uniform sampler2D uScreenPlane1;
uniform mat3 uScreenMatrix;
uniform vec3 uScreenOffset;
uniform vec2 uScreenTextureSize;

uniform sampler2D uWebcamPlane0;
uniform sampler2D uWebcamPlane1;
uniform mat3 uWebcamMatrix;
uniform vec3 uWebcamOffset;

// Premultiplied RGBA pictures.
uniform sampler2D uCursor;
uniform sampler2D uCaption;
uniform sampler2D uBackground;
uniform sampler2D uDeviceFrame;

out vec4 fragColor;

const int blurSamples = 7;
// The largest radius of a click effect, in cursor points.
uniform float uClickRadiusPoints;

vec3 yuvToRgb(float luma, vec2 chroma, mat3 matrix, vec3 offset) {
    return clamp(matrix * vec3(luma, chroma) + offset, 0.0, 1.0);
}

vec3 sampleScreen(vec2 point) {
#if RILO_SCREEN_RGBA
    return texture(uScreenPlane0, point).rgb;
#else
    return yuvToRgb(texture(uScreenPlane0, point).r, texture(uScreenPlane1, point).rg, uScreenMatrix, uScreenOffset);
#endif
}

#if RILO_WEBCAM
vec3 sampleWebcam(vec2 point) {
#if RILO_WEBCAM_RGBA
    return texture(uWebcamPlane0, point).rgb;
#else
    return yuvToRgb(texture(uWebcamPlane0, point).r, texture(uWebcamPlane1, point).rg, uWebcamMatrix, uWebcamOffset);
#endif
}
#endif

// Signed distance to a rounded rectangle given by its top-left corner and
// size, negative inside.
float roundedRectDistance(vec2 point, vec4 rect, float radius) {
    vec2 halfSize = rect.zw * 0.5;
    vec2 q = abs(point - rect.xy - halfSize) - halfSize + radius;
    return length(max(q, 0.0)) + min(max(q.x, q.y), 0.0) - radius;
}

// Coverage of a distance field over one pixel.
float coverage(float distance) { return clamp(0.5 - distance, 0.0, 1.0); }

vec3 over(vec3 base, vec4 premultiplied) { return base * (1.0 - premultiplied.a) + premultiplied.rgb; }

// Interleaved gradient noise, -0.5 to 0.5: breaks 8-bit banding of gradients.
float dither(vec2 pixel) { return fract(52.9829189 * fract(dot(pixel, vec2(0.06711056, 0.00583715)))) - 0.5; }

vec3 background(vec2 point, vec2 pixel) {
    float mode = uScene[0].w;
#if RILO_BACKGROUND_IMAGE
    if (mode > 1.5) {
        // Cover the output, keeping the picture's aspect.
        vec2 outputSize = uScene[0].xy;
        float outputAspect = outputSize.x / outputSize.y;
        float imageAspect = uScene[3].x / max(uScene[3].y, 1.0);
        vec2 texturePoint = point;
        if (imageAspect > outputAspect) {
            texturePoint.x = 0.5 + (point.x - 0.5) * outputAspect / imageAspect;
        } else {
            texturePoint.y = 0.5 + (point.y - 0.5) * imageAspect / outputAspect;
        }
        return texture(uBackground, texturePoint).rgb;
    }
#endif
    if (mode > 0.5) {
        return mix(uScene[1].rgb, uScene[2].rgb, point.y) + dither(pixel) / 255.0;
    }
    return uScene[1].rgb;
}

// A view point, 0 to 1 across the screen rectangle, as a point of the screen
// texture under a camera.
vec2 viewToTexture(vec2 view, vec2 center, float scale) {
    vec2 source = center + (view - 0.5) / scale;
    return uScene[7].xy + source * uScene[7].zw;
}

vec3 screenContent(vec2 view) {
    vec4 camera = uScene[8];
#if RILO_BLUR
    vec4 blurCamera = uScene[9];
    vec3 sum = vec3(0.0);
    for (int i = 0; i < blurSamples; ++i) {
        float t = float(i) / float(blurSamples - 1);
        sum += sampleScreen(viewToTexture(view, mix(camera.xy, blurCamera.xy, t), mix(camera.z, blurCamera.z, t)));
    }
    return sum / float(blurSamples);
#else
    return sampleScreen(viewToTexture(view, camera.xy, camera.z));
#endif
}

// Premultiplied click effect and cursor above the content. `pointPixels` is
// how many output pixels one cursor point covers.
#if RILO_CURSOR
vec4 cursorLayer(vec2 pixel, vec4 screenRect, float pointPixels) {
    vec4 layer = vec4(0.0);
    float progress = uScene[10].z;
    if (progress >= 0.0) {
        int style = int(uScene[10].w + 0.5);
        vec2 center = screenRect.xy + uScene[12].xy * screenRect.zw;
        float distance = length(pixel - center);
        float radius = uClickRadiusPoints * pointPixels;
        float grown = 1.0 - pow(1.0 - clamp(progress, 0.0, 1.0), 3.0);
        float fade = 1.0 - clamp(progress, 0.0, 1.0);
        vec3 accent = uScene[13].rgb;
        if (style == 0) {
            float discRadius = radius * (0.3 + 0.7 * grown);
            layer = vec4(accent, 1.0) * 0.55 * fade * coverage(distance - discRadius);
        } else {
            float ringRadius = radius * (0.25 + 0.95 * grown);
            float ringWidth = max(3.0 * pointPixels * (1.0 - 0.5 * progress), 1.0);
            layer = vec4(accent, 1.0) * 0.9 * fade * coverage(abs(distance - ringRadius) - ringWidth * 0.5);
        }
    }
    if (uScene[8].w > 0.5) {
        float scale = pointPixels;
        vec2 size = uScene[11].xy * scale;
        vec2 topLeft = screenRect.xy + uScene[10].xy * screenRect.zw - uScene[11].zw * scale;
        vec2 inside = (pixel - topLeft) / max(size, vec2(1e-3));
        if (all(greaterThanEqual(inside, vec2(0.0))) && all(lessThanEqual(inside, vec2(1.0)))) {
            vec4 cursor = texture(uCursor, inside);
            layer = cursor + layer * (1.0 - cursor.a);
        }
    }
    return layer;
}
#endif

#if RILO_WEBCAM
vec3 drawWebcam(vec3 color, vec2 pixel, float minimumMeasure) {
    vec2 outputSize = uScene[0].xy;
    vec4 rect = uScene[14] * vec4(outputSize, outputSize);
    float radius = min(uScene[16].z, 0.5 * min(rect.z, rect.w));
    float distance = roundedRectDistance(pixel, rect, radius);
    float unit = minimumMeasure / 1080.0;
    if (uScene[17].x > 0.5 && uScene[17].y > 0.0) {
        float softness = uScene[17].w * unit;
        float shadowDistance = roundedRectDistance(pixel - vec2(0.0, uScene[17].z * unit), rect, radius);
        float shadow = 1.0 - smoothstep(-0.25 * softness, softness, shadowDistance);
        color *= 1.0 - uScene[17].y * shadow * shadow;
    }
    float covered = coverage(distance);
    if (covered <= 0.0) {
        return color;
    }
    // Crop the source to the rectangle's aspect, around its centre.
    vec2 view = (pixel - rect.xy) / rect.zw;
    float sourceAspect = uScene[15].z;
    float rectAspect = uScene[15].w;
    if (sourceAspect > rectAspect) {
        view.x = 0.5 + (view.x - 0.5) * rectAspect / sourceAspect;
    } else {
        view.y = 0.5 + (view.y - 0.5) * sourceAspect / rectAspect;
    }
    if (uScene[15].y > 0.5) {
        view.x = 1.0 - view.x;
    }
    vec3 camera = sampleWebcam(view);
    float borderOpacity = uScene[16].y;
    if (borderOpacity > 0.0) {
        float inBorder = 1.0 - coverage(distance + uScene[16].w);
        camera = mix(camera, vec3(1.0), borderOpacity * inBorder);
    }
    return mix(color, camera, covered);
}
#endif

void main() {
    vec2 outputSize = uScene[0].xy;
    vec2 pixel = vec2(gl_FragCoord.x, uRowsTopFirst == 1 ? gl_FragCoord.y : outputSize.y - gl_FragCoord.y);
    vec2 point = pixel / outputSize;
    float minimumMeasure = min(outputSize.x, outputSize.y);

    vec4 screenRect = uScene[4] * vec4(outputSize, outputSize);
    float radius = min(uScene[0].z * minimumMeasure, 0.5 * min(screenRect.z, screenRect.w));
    bool hasFrame = uScene[6].x > 0.5;
#if RILO_SCREEN_INTERIOR
    // The screen hides the background and its own shadow here.
    vec3 color = vec3(0.0);
    float screenCoverage = 1.0;
#else
    vec3 color = background(point, pixel);
    if (!hasFrame) {
        // Soft shadow from the distance to the screen shape, lowered a little.
        float softness = 0.03 * minimumMeasure;
        float shadowDistance = roundedRectDistance(pixel - vec2(0.0, 0.008 * minimumMeasure), screenRect, radius);
        float shadow = 1.0 - smoothstep(-0.5 * softness, softness, shadowDistance);
        color *= 1.0 - 0.4 * shadow * shadow;
    }
#if RILO_SCREEN
    float screenCoverage = coverage(roundedRectDistance(pixel, screenRect, radius));
#endif
#endif

#if RILO_SCREEN
    if (screenCoverage > 0.0 && screenRect.z > 0.0 && screenRect.w > 0.0) {
        vec2 view = (pixel - screenRect.xy) / screenRect.zw;
        vec3 content = screenContent(view);
        // Cursor points follow the content: one source pixel a point, times
        // the camera's magnification.
#if RILO_CURSOR
        float sourcePixels = max(uScene[7].z * uScreenTextureSize.x, 1.0);
        float pointPixels = screenRect.z / sourcePixels * uScene[8].z;
#endif
#if RILO_CURSOR
        content = over(content, cursorLayer(pixel, screenRect, pointPixels));
#endif
        color = mix(color, content, screenCoverage);
    }

#if RILO_DEVICE_FRAME
    if (hasFrame) {
        vec4 frameRect = uScene[5] * vec4(outputSize, outputSize);
        vec2 inside = (pixel - frameRect.xy) / frameRect.zw;
        if (all(greaterThanEqual(inside, vec2(0.0))) && all(lessThanEqual(inside, vec2(1.0)))) {
            // The picture is portrait; landscape turns it a quarter turn
            // clockwise.
            vec2 picturePoint = uScene[6].y > 0.5 ? vec2(inside.y, 1.0 - inside.x) : inside;
            color = over(color, texture(uDeviceFrame, picturePoint));
        }
    }
#endif

#endif

#if RILO_WEBCAM
    if (uScene[15].x > 0.5) {
        color = drawWebcam(color, pixel, minimumMeasure);
    }
#endif

#if RILO_CAPTION
    vec4 captionRect = uScene[18] * vec4(outputSize, outputSize);
    if (captionRect.z > 0.0 && captionRect.w > 0.0) {
        vec2 inside = (pixel - captionRect.xy) / captionRect.zw;
        if (all(greaterThanEqual(inside, vec2(0.0))) && all(lessThanEqual(inside, vec2(1.0)))) {
            color = over(color, texture(uCaption, inside));
        }
    }
#endif

    fragColor = vec4(clamp(color, 0.0, 1.0), 1.0);
}

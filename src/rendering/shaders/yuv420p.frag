#version 300 es
// Packs a picture as BT.709 limited-range YUV 4:2:0 planes, laid out exactly
// as Y, U, V follow each other in memory: each RGBA output texel holds four
// consecutive bytes, so the target is a quarter of the width and one and a
// half times the height of the picture. The width must be a multiple of 8.
// RILO_CHROMA selects the variant for the rows below the first height (U and
// V); the other variant fills the Y rows.
precision highp float;
precision highp int;

// Read with linear filtering.
uniform sampler2D uImage;
uniform ivec2 uSize;
// 1 when the picture's row 0 is its top.
uniform int uRowsTopFirst;

out vec4 fragColor;

vec3 pictureAt(int x, int y) {
    int row = uRowsTopFirst == 1 ? y : uSize.y - 1 - y;
    return texelFetch(uImage, ivec2(x, row), 0).rgb;
}

float luma(vec3 rgb) { return dot(rgb, vec3(0.2126, 0.7152, 0.0722)); }

#if RILO_CHROMA
// The chroma byte at `index` from the start of the U plane.
float chromaByte(int index) {
    int chromaWidth = uSize.x / 2;
    int planeBytes = chromaWidth * (uSize.y / 2);
    bool isRed = index >= planeBytes;
    if (isRed) {
        index -= planeBytes;
    }
    int x = (index % chromaWidth) * 2;
    int y = (index / chromaWidth) * 2;
    // One bilinear read at the corner the four pixels share is their mean.
    float row = uRowsTopFirst == 1 ? float(y + 1) : float(uSize.y - 1 - y);
    vec3 rgb = texture(uImage, vec2(float(x + 1), row) / vec2(uSize)).rgb;
    float y709 = luma(rgb);
    return 128.0 + 224.0 * (isRed ? (rgb.r - y709) / 1.5748 : (rgb.b - y709) / 1.8556);
}
#endif

void main() {
    ivec2 texel = ivec2(gl_FragCoord.xy);
#if RILO_CHROMA
    int first = ((texel.y - uSize.y) * uSize.x / 4 + texel.x) * 4;
    fragColor = vec4(chromaByte(first), chromaByte(first + 1), chromaByte(first + 2), chromaByte(first + 3)) / 255.0;
#else
    int x = texel.x * 4;
    vec4 lumas = vec4(luma(pictureAt(x, texel.y)), luma(pictureAt(x + 1, texel.y)), luma(pictureAt(x + 2, texel.y)),
                      luma(pictureAt(x + 3, texel.y)));
    fragColor = (16.0 + 219.0 * lumas) / 255.0;
#endif
}

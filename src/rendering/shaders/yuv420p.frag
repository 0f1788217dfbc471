#version 300 es
// Packs a picture as BT.709 limited-range YUV 4:2:0 planes, laid out exactly
// as Y, U, V follow each other in memory: each RGBA output texel holds four
// consecutive bytes, so the target is a quarter of the width and one and a
// half times the height of the picture. The width must be a multiple of 8.
precision highp float;
precision highp int;

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

float byteAt(int index) {
    int width = uSize.x;
    int height = uSize.y;
    int lumaBytes = width * height;
    if (index < lumaBytes) {
        return 16.0 + 219.0 * luma(pictureAt(index % width, index / width));
    }
    int chromaWidth = width / 2;
    int chromaBytes = chromaWidth * (height / 2);
    int chromaIndex = index - lumaBytes;
    bool isRed = chromaIndex >= chromaBytes;
    if (isRed) {
        chromaIndex -= chromaBytes;
    }
    int x = (chromaIndex % chromaWidth) * 2;
    int y = (chromaIndex / chromaWidth) * 2;
    vec3 rgb = 0.25 * (pictureAt(x, y) + pictureAt(x + 1, y) + pictureAt(x, y + 1) + pictureAt(x + 1, y + 1));
    float y709 = luma(rgb);
    float difference = isRed ? (rgb.r - y709) / 1.5748 : (rgb.b - y709) / 1.8556;
    return 128.0 + 224.0 * difference;
}

void main() {
    ivec2 texel = ivec2(gl_FragCoord.xy);
    int first = (texel.y * uSize.x / 4 + texel.x) * 4;
    fragColor = vec4(byteAt(first), byteAt(first + 1), byteAt(first + 2), byteAt(first + 3)) / 255.0;
}

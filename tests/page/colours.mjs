// Colours as people see them: contrast (WCAG 2.2), the three kinds of colour blindness (Machado,
// Oliveira and Fernandes 2009, severity 1) and the difference of two colours (CIEDE2000).

const linear = (c) => (c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4);
export const parse = (hex) => [1, 3, 5].map((i) => linear(parseInt(hex.slice(i, i + 2), 16) / 255));

// Of linear sRGB, row by row.
export const sights = {
    full: [1, 0, 0, 0, 1, 0, 0, 0, 1],
    protanopia: [0.152286, 1.052583, -0.204868, 0.114503, 0.786281, 0.099216, -0.003882, -0.048116, 1.051998],
    deuteranopia: [0.367322, 0.860646, -0.227968, 0.280085, 0.672501, 0.047413, -0.01182, 0.04294, 0.968881],
    tritanopia: [1.255528, -0.076749, -0.178779, -0.078411, 0.930809, 0.147602, 0.004733, 0.691367, 0.3039],
};

export const seen = (sight, [r, g, b]) =>
    [0, 3, 6].map((i) => Math.min(1, Math.max(0, sights[sight][i] * r + sights[sight][i + 1] * g + sights[sight][i + 2] * b)));

const luminance = ([r, g, b]) => 0.2126 * r + 0.7152 * g + 0.0722 * b;
export function contrast(a, b) {
    const [low, high] = [luminance(a), luminance(b)].sort((x, y) => x - y);
    return (high + 0.05) / (low + 0.05);
}

// CIE 1976 L*a*b*, D65.
function lab([r, g, b]) {
    const f = (t) => (t > 216 / 24389 ? Math.cbrt(t) : ((24389 / 27) * t + 16) / 116);
    const x = f((0.4124564 * r + 0.3575761 * g + 0.1804375 * b) / 0.95047);
    const y = f(luminance([r, g, b]));
    const z = f((0.0193339 * r + 0.119192 * g + 0.9503041 * b) / 1.08883);
    return [116 * y - 16, 500 * (x - y), 200 * (y - z)];
}

/// CIEDE2000 of two colours of L*a*b*: about 1 is just seen. CIE 142-2001; symbols of Sharma, Wu and
/// Dalal 2005.
export function differenceOfLab([L1, a1, b1], [L2, a2, b2]) {
    const rad = Math.PI / 180;
    const mean = (Math.hypot(a1, b1) + Math.hypot(a2, b2)) / 2;
    const G = 0.5 * (1 - Math.sqrt(mean ** 7 / (mean ** 7 + 25 ** 7)));
    const [A1, A2] = [a1 * (1 + G), a2 * (1 + G)];
    const [C1, C2] = [Math.hypot(A1, b1), Math.hypot(A2, b2)];
    const hue = (b, a) => (a === 0 && b === 0 ? 0 : (Math.atan2(b, a) / rad + 360) % 360);
    const [h1, h2] = [hue(b1, A1), hue(b2, A2)];
    let turn = 0;
    let h = h1 + h2;
    if (C1 * C2 !== 0) {
        turn = h2 - h1;
        if (turn > 180) turn -= 360;
        else if (turn < -180) turn += 360;
        h = Math.abs(h1 - h2) <= 180 ? h / 2 : h < 360 ? (h + 360) / 2 : (h - 360) / 2;
    }
    const dH = 2 * Math.sqrt(C1 * C2) * Math.sin((turn * rad) / 2);
    const L = (L1 + L2) / 2;
    const C = (C1 + C2) / 2;
    const cos = (degrees) => Math.cos(degrees * rad);
    const T = 1 - 0.17 * cos(h - 30) + 0.24 * cos(2 * h) + 0.32 * cos(3 * h + 6) - 0.2 * cos(4 * h - 63);
    const SL = 1 + (0.015 * (L - 50) ** 2) / Math.sqrt(20 + (L - 50) ** 2);
    const [SC, SH] = [1 + 0.045 * C, 1 + 0.015 * C * T];
    const RT = -2 * Math.sqrt(C ** 7 / (C ** 7 + 25 ** 7)) * Math.sin(60 * rad * Math.exp(-(((h - 275) / 25) ** 2)));
    const [l, c, d] = [(L2 - L1) / SL, (C2 - C1) / SC, dH / SH];
    return Math.sqrt(l * l + c * c + d * d + RT * c * d);
}

export const difference = (a, b) => differenceOfLab(lab(a), lab(b));

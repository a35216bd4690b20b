// A made-up sky: satellites on circular orbits, seen from a place.

const degree = Math.PI / 180;
const earthRadiusM = 6371e3;
const turnRadS = 7.2921e-5;

// Planes, satellites a plane, inclination (degrees), radius (m), of each system.
const walkers = {
    G: [6, 5, 55, 26560e3], R: [3, 8, 64.8, 25510e3], E: [3, 8, 56, 29600e3], C: [3, 10, 55, 27900e3], J: [1, 3, 40, 42164e3],
};
export const signals = {
    G: ["1C", "2W", "5Q"], R: ["1C", "2C"], E: ["1C", "5Q", "7Q"], C: ["2I", "6I", "7I"], J: ["1C", "2L", "5Q"],
};

const satellites = Object.entries(walkers).flatMap(([system, [planes, each, inclination, radius]]) =>
    Array.from({ length: planes * each }, (_, i) => ({
        name: system + String(i + 1).padStart(2, "0"),
        system,
        radius,
        node: ((360 / planes) * (i % planes) + (system.charCodeAt(0) % 60)) * degree,
        phase: ((360 / each) * Math.floor(i / planes) + (360 / planes / each) * (i % planes) * 2) * degree,
        tilt: inclination * degree,
        rate: Math.sqrt(3.986e14 / radius ** 3),
    })),
);

function position(s, unix) {
    const u = s.phase + s.rate * (unix % 86400e2);
    const node = s.node - turnRadS * (unix % 86400e2);
    const [x, y, z] = [Math.cos(u), Math.sin(u) * Math.cos(s.tilt), Math.sin(u) * Math.sin(s.tilt)];
    return [
        s.radius * (x * Math.cos(node) - y * Math.sin(node)),
        s.radius * (x * Math.sin(node) + y * Math.cos(node)),
        s.radius * z,
    ];
}

/// The satellites above the horizon: name, system, direction (degrees) and unit vector east, north, up.
export function skyOf({ latitude_deg: latitude, longitude_deg: longitude }, unix) {
    const [sinB, cosB] = [Math.sin(latitude * degree), Math.cos(latitude * degree)];
    const [sinL, cosL] = [Math.sin(longitude * degree), Math.cos(longitude * degree)];
    const own = [cosB * cosL * earthRadiusM, cosB * sinL * earthRadiusM, sinB * earthRadiusM];
    const seen = [];
    for (const s of satellites) {
        const d = position(s, unix).map((c, i) => c - own[i]);
        const r = Math.hypot(...d);
        const east = (-sinL * d[0] + cosL * d[1]) / r;
        const north = (-sinB * cosL * d[0] - sinB * sinL * d[1] + cosB * d[2]) / r;
        const up = (cosB * cosL * d[0] + cosB * sinL * d[1] + sinB * d[2]) / r;
        if (up < 0.01) continue;
        seen.push({
            name: s.name,
            system: s.system,
            azimuth: (Math.atan2(east, north) / degree + 360) % 360,
            elevation: Math.asin(up) / degree,
            unit: [east, north, up],
        });
    }
    return seen;
}

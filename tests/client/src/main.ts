// A client of the camera's ISP settings, on the development host: reads every
// resource, changes the extreme-colour fusion, two thermal settings and one
// white-balance weight and reads them back, has a value outside its set
// refused, and sees a device fault arrive and go. Every path, parameter and
// member is typed from the API document (generated/api.d.ts, written by
// openapi-typescript from docs/openapi.json), so a change of the document that
// this program does not follow fails its type check.
//
// usage: node dist/main.js [BASE_URL [TOKEN]]
//   BASE_URL  the host, default http://127.0.0.1:8080
//   TOKEN     the host's access token, where it needs one (beyond loopback)
import createClient from "openapi-fetch";
import type { paths } from "../generated/api.js";

const [baseUrl = "http://127.0.0.1:8080", token] = process.argv.slice(2);
const client = createClient<paths>({
    baseUrl,
    headers: token === undefined ? {} : { Authorization: `Bearer ${token}` },
});

// The query of the resources of the visible-light channel, and of the thermal ones.
const visible = { query: { ChannelId: 101 } } as const;
const thermal = { query: { ChannelId: 102 } } as const;

let failures = 0;

// The answer's body when the request succeeded; otherwise says what came back, and stops.
function must<T>(what: string, result: { data?: T; error?: unknown; response: Response }): T {
    if (result.data === undefined) {
        throw new Error(`${what}: HTTP ${result.response.status} ${JSON.stringify(result.error)}`);
    }
    return result.data;
}

// The settings a GET answered, printed.
function read<T>(resource: string, result: { data?: T; error?: unknown; response: Response }): T {
    const settings = must(resource, result);
    console.log(resource, JSON.stringify(settings));
    return settings;
}

// The status envelope of a refused request, or of a failed one: StatusCode and StatusString.
function refusal(error: unknown): string {
    if (typeof error === "object" && error !== null && "ResponseStatus" in error) {
        const { ResponseStatus } = error as { ResponseStatus: { StatusCode: number; StatusString: string } };
        return `StatusCode ${ResponseStatus.StatusCode} (${ResponseStatus.StatusString})`;
    }
    return `no status envelope: ${JSON.stringify(error)}`;
}

function expect(what: string, expected: unknown, actual: unknown): void {
    const same = JSON.stringify(expected) === JSON.stringify(actual);
    console.log(`${same ? "ok  " : "FAIL"} ${what}: ${JSON.stringify(actual)}`);
    if (!same) {
        console.log(`     expected ${JSON.stringify(expected)}`);
        failures++;
    }
}

async function main(): Promise<void> {
    // Every resource that answers a GET.
    read("FakeRatio", await client.GET("/api/isp/FakeRatio"));
    const capability = read("Capability", await client.GET("/api/isp/Capability", { params: visible }));
    read("AfStatus", await client.GET("/api/isp/AfStatus", { params: visible }));
    read("AfPlanePoint", await client.GET("/api/isp/AfPlanePoint", { params: visible }));
    const awb = read("Awb", await client.GET("/api/isp/Awb", { params: visible }));
    const extreColor = read("ExtreColor", await client.GET("/api/isp/ExtreColor", { params: visible }));
    const settings = read("Thermal", await client.GET("/api/isp/Thermal", { params: thermal }));

    // Changes, each read back. A PUT names only the members it changes.
    const fusionStrength = extreColor.fusionStrength === 70 ? 30 : 70;
    must("PUT ExtreColor", await client.PUT("/api/isp/ExtreColor", { params: visible, body: { fusionStrength } }));
    expect("ExtreColor after the change", { fusionStrength },
           must("ExtreColor", await client.GET("/api/isp/ExtreColor", { params: visible })));

    // The thermal brightness within the range the device reports for it
    // (x-capability-range), and the correction interval from its set.
    const range = capability.basicInfos.brightness;
    const brightness = settings.basicData.brightness === range.end ? range.begin : range.end;
    const correctTime = settings.correctData.autoModeData.correctTime === 30 ? 45 : 30;
    must("PUT Thermal", await client.PUT("/api/isp/Thermal", {
        params: thermal,
        body: { basicData: { brightness }, correctData: { autoModeData: { correctTime } } },
    }));
    const changed = must("Thermal", await client.GET("/api/isp/Thermal", { params: thermal }));
    expect("Thermal brightness and correction interval after the change",
           { brightness, correctTime, contrast: settings.basicData.contrast },
           { brightness: changed.basicData.brightness, correctTime: changed.correctData.autoModeData.correctTime,
             contrast: changed.basicData.contrast });

    // One region's white-balance weight: the tenth digit of the weights.
    const weights = awb.regionAwbAttr.roiWeightArray;
    const roiWeightArray = weights.slice(0, 9) + (weights[9] === "2" ? "3" : "2") + weights.slice(10);
    must("PUT Awb", await client.PUT("/api/isp/Awb", { params: visible, body: { regionAwbAttr: { roiWeightArray } } }));
    expect("Awb weights after the change", roiWeightArray,
           must("Awb", await client.GET("/api/isp/Awb", { params: visible })).regionAwbAttr.roiWeightArray);

    // A correction interval outside its set: the types refuse it, the device does too.
    const refused = await client.PUT("/api/isp/Thermal", {
        params: thermal,
        body: {
            correctData: {
                autoModeData: {
                    // @ts-expect-error 7 is not one of the intervals the document allows; sent to see it refused
                    correctTime: 7,
                },
            },
        },
    });
    expect("refusal of the interval 7", "HTTP 400, StatusCode 4 (Invalid Content)",
           `HTTP ${refused.response.status}, ${refusal(refused.error)}`);
    expect("correction interval after the refusal", correctTime,
           must("Thermal", await client.GET("/api/isp/Thermal", { params: thermal }))
               .correctData.autoModeData.correctTime);

    // A fault of the simulated device: the control process answers the
    // extreme-colour command (x-device: /_sim/control/3229) with Result 5
    // until the faults are cleared.
    const fault = must("POST /_sim/faults", await client.POST("/_sim/faults", {
        body: { command: 3229, kind: "result", result: 5 },
    }));
    console.log("fault armed", JSON.stringify(fault));
    const failed = await client.GET("/api/isp/ExtreColor", { params: visible });
    expect("ExtreColor with the fault", "HTTP 500, StatusCode 5 (Device Error)",
           `HTTP ${failed.response.status}, ${refusal(failed.error)}`);
    must("DELETE /_sim/faults", await client.DELETE("/_sim/faults"));
    expect("faults after clearing", { isp: [], control: [] }, must("GET /_sim/faults", await client.GET("/_sim/faults")));
    expect("ExtreColor after clearing", { fusionStrength },
           must("ExtreColor", await client.GET("/api/isp/ExtreColor", { params: visible })));
}

main().then(
    () => {
        console.log(failures === 0 ? "client: every answer as expected" : `client: ${failures} answers not as expected`);
        process.exitCode = failures === 0 ? 0 : 1;
    },
    (error: unknown) => {
        console.error(`client: ${error instanceof Error ? error.message : String(error)}`);
        process.exitCode = 1;
    },
);

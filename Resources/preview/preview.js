"use strict";

// Asks once a second how the camera is, and watches the picture only while the page is seen: who looks at a
// hidden page keeps the camera awake for nothing.

const kPeriodMs = 1000;
const kSoonMs = 200; // while the first answer is on its way

const element = (id) => document.getElementById(id);
const picture = element("picture");
let timer = 0;
let isBroken = false; // the picture's answer has ended
let missed = 0; // how often the server knew of no viewer, though we are one

function setText(id, text) {
  const target = element(id);
  // Unchanged text is left alone, so that it is not read aloud again and can be selected.
  if (target.textContent !== text) target.textContent = text;
}

function span(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  const two = (value) => String(value).padStart(2, "0");
  const hours = Math.floor(whole / 3600);
  const minutes = Math.floor(whole / 60) % 60;
  if (hours >= 48) return `${Math.floor(hours / 24)} days`;
  if (hours > 0) return `${hours}:${two(minutes)}:${two(whole % 60)} h`;
  return minutes > 0 ? `${minutes}:${two(whole % 60)} min` : `${whole} s`;
}

const count = (value) => (Number.isFinite(value) ? value.toLocaleString("en") : "–");
const process = (who) => `${who.program} (${who.pid})`;

function setState(kind, text) {
  element("state").dataset.kind = kind;
  setText("state", text);
}

function showPicture() {
  element("notice").hidden = true;
  picture.hidden = false;
}

function showNotice(title, text = "", command = "", reason = "") {
  picture.hidden = true;
  element("notice").hidden = false;
  setText("notice-title", title);
  setText("notice-text", text);
  setText("notice-command", command);
  element("notice-command").hidden = command === "";
  setText("notice-reason", reason);
}

function watch(isWanted) {
  const isWatching = picture.hasAttribute("src");
  if (isWanted && (!isWatching || isBroken)) {
    isBroken = false;
    // A new address each time, or the browser would show the last picture that it has.
    picture.src = `/picture.mjpeg?${Date.now()}`;
  } else if (!isWanted && isWatching) {
    picture.removeAttribute("src");
  }
}

function showState(camera, problem, preview) {
  const hasPicture = preview.rate > 0;
  if (!camera && !hasPicture && !problem.startsWith("no camera")) {
    setState("down", "Camera does not answer");
    showNotice("The camera does not answer", problem);
  } else if (!camera && !hasPicture) {
    setState("down", "Camera not running");
    showNotice("The camera is not running", "Start it in a terminal, or as a service:", "pavo camera");
  } else if (camera?.state === "waiting" || camera?.pipewire === "waiting") {
    setState("waiting", "Waiting for PipeWire");
    showNotice("The camera waits for PipeWire", "It appears as soon as PipeWire answers. The picture comes then.");
  } else if (!hasPicture) {
    setState("waiting", "No picture yet");
    showNotice("No picture yet", "The camera runs; its picture is on the way.", "", preview.problem ?? "");
  } else {
    showPicture();
    if (camera?.state === "placeholder" || (camera && !camera.producer))
      setState("placeholder", "Placeholder: no producer connected");
    else if (camera?.producer) setState("live", `Live: ${camera.producer.program}`);
    else setState("live", "Live");
  }
}

function showCaption(camera, preview) {
  let text = "\u00a0";
  if (!picture.hidden && camera && !camera.producer)
    text = "No program sends pictures, so clients see the placeholder. Try: pavo send";
  else if (!picture.hidden) text = "What clients of the camera see now, made smaller for this page.";
  setText("caption", text);
  picture.alt = camera?.producer
    ? `Live picture of the camera, sent by ${camera.producer.program}`
    : "The camera's placeholder picture";
}

function showFigures(camera, preview) {
  const frames = camera?.frames;
  const rate = preview.rate > 0 ? preview.rate : frames?.rate;
  setText("rate", Number.isFinite(rate) ? rate.toFixed(1) : "–");
  for (const name of ["sent", "drawn", "dropped"]) setText(name, count(frames?.[name]));
  const producer = camera?.producer;
  setText("producer", producer ? `${process(producer)}, for ${span(producer.connected_s)}` : camera ? "none" : "–");
  const format = camera?.format ?? preview.format;
  setText("format", format ? `${format.pixel} ${format.width}×${format.height}` : "–");
  const places = { daemon: "the user's daemon", embedded: "the camera's own", waiting: "waiting for it" };
  setText("pipewire", camera ? places[camera.pipewire] ?? camera.pipewire : "–");
  setText("node", camera ? `${camera.node.name}${camera.node.id === null ? "" : ` (${camera.node.id})`}` : "–");
  setText("process", camera ? `${camera.pid}, version ${camera.version}` : "–");
  setText("uptime", camera ? span(camera.uptime_s) : "–");
}

function cell(text, className = "") {
  const made = document.createElement("td");
  made.className = className;
  made.textContent = text;
  return made;
}

function row(client, preview) {
  const made = document.createElement("tr");
  const program = cell(client.program);
  if (client.pid === preview.pid) {
    const badge = document.createElement("span");
    badge.className = "badge";
    badge.textContent = "this preview";
    program.append(badge);
  }
  made.append(program, cell(String(client.pid), "number"), cell(client.app_id ?? "–"),
    cell(span(client.connected_s), "number"));
  return made;
}

function showClients(camera, preview) {
  const clients = camera?.clients ?? [];
  element("clients").replaceChildren(...clients.map((client) => row(client, preview)));
  document.querySelector(".clients table").hidden = clients.length === 0;
  element("no-clients").hidden = clients.length > 0;
  setText("no-clients", camera ? "Nobody watches the camera." : "None.");
  setText("client-count", clients.length > 0 ? `(${clients.length})` : "");
}

function show({ camera, problem, preview }) {
  const isFirst = !camera && !problem;
  // Not every browser says that a picture which was to go on for ever has ended.
  missed = picture.hasAttribute("src") && preview.viewers === 0 ? missed + 1 : 0;
  if (missed > 1) isBroken = true;
  watch(!document.hidden);
  if (!isFirst || preview.rate > 0) showState(camera, problem ?? "", preview);
  if (isBroken && preview.viewers >= preview.most_viewers)
    showNotice("Too many watch already", `${preview.viewers} viewers have the picture. Close one of them.`);
  showCaption(camera, preview);
  showFigures(camera, preview);
  showClients(camera, preview);
  return isFirst ? kSoonMs : kPeriodMs;
}

function showEnd() {
  setState("down", "Preview ended");
  showNotice("The preview has ended", "Start it again, and this page goes on:", "pavo preview --http");
  const nobody = { rate: 0, problem: null, format: null, pid: 0 };
  showCaption(null, nobody);
  showFigures(null, nobody);
  showClients(null, nobody);
  isBroken = true;
}

async function ask() {
  let nextMs = kPeriodMs;
  try {
    const answer = await fetch("/status.json", { cache: "no-store" });
    if (!answer.ok) throw new Error(`${answer.status}`);
    nextMs = show(await answer.json());
  } catch {
    showEnd();
  }
  window.clearTimeout(timer);
  if (!document.hidden) timer = window.setTimeout(ask, nextMs);
}

picture.addEventListener("error", () => { isBroken = true; });
document.addEventListener("visibilitychange", () => {
  window.clearTimeout(timer);
  if (document.hidden) watch(false);
  else ask();
});
ask();

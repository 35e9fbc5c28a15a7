"use strict";
// Keeps the page fresh without reloading it under somebody's fingers: a part that is being edited stays as it is, apart
// from what the terminal reported.

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const isEdited = (part) =>
  part.querySelector("form[data-edited]") !== null ||
  (part.contains(document.activeElement) && document.activeElement.matches("input, select, textarea"));

function takeOver(fresh) {
  for (const card of document.querySelectorAll("#terminals > article")) {
    if (!fresh.getElementById(card.id)) card.remove();
  }
  for (const part of [...fresh.querySelectorAll("[data-live]")]) {
    const shown = document.getElementById(part.id);
    if (!shown) document.getElementById("terminals").append(part);
    else if (shown !== part && !isEdited(shown)) replace(shown, part);
  }
  showTimes();
}

function replace(shown, part) {
  for (const group of shown.querySelectorAll("details[open]")) {
    const same = part.querySelector("#" + CSS.escape(group.id));
    if (same) same.open = true;
  }
  shown.replaceWith(part);
}

function showTimes() {
  for (const time of document.querySelectorAll("time[data-at]")) {
    const seconds = Math.max(0, Math.round((Date.now() - Number(time.dataset.at)) / 1000));
    if (seconds < 60) time.textContent = seconds + " s ago";
    else if (seconds < 3600) time.textContent = Math.floor(seconds / 60) + " min ago";
    else time.textContent = new Date(Number(time.dataset.at)).toLocaleString();
  }
}

function showLink(isLive) {
  const link = document.getElementById("link");
  link.hidden = false;
  link.textContent = isLive ? "live" : "not reachable";
  link.className = "badge " + (isLive ? "good" : "bad");
}

async function follow() {
  let revision = Number(document.body.dataset.revision);
  for (;;) {
    try {
      const wish = JSON.stringify({ afterRevision: revision, timeoutSeconds: 25 });
      const reply = await (await fetch("/admin/wait", { method: "POST", body: wish })).json();
      showLink(true);
      if (reply.reached) {
        revision = reply.revision;
        const text = await (await fetch("/")).text();
        takeOver(new DOMParser().parseFromString(text, "text/html"));
        await pause(300);
      }
    } catch {
      showLink(false);
      revision = -1; // a portal that was started anew counts from the beginning
      await pause(2000);
    }
  }
}

function showFaultFields() {
  const form = document.getElementById("fault-form");
  for (const label of form.querySelectorAll("[data-kinds]")) {
    label.hidden = !label.dataset.kinds.split(" ").includes(form.elements.kind.value);
  }
}

document.addEventListener("input", (event) => {
  const form = event.target.closest("form");
  if (form) form.dataset.edited = "";
  showFaultFields();
});
document.addEventListener("submit", (event) => {
  const question = event.target.dataset.confirm;
  if (question && !confirm(question)) event.preventDefault();
});

showFaultFields();
showTimes();
setInterval(showTimes, 1000);
follow();
